#include "viewer/video_files.hpp"

#include <filesystem>

#include "net/Url.hpp"
#include "net/UrlEncoding.hpp"
#include "util/Text.hpp"

namespace tovani {

namespace {

// Longest file name the common file systems accept.
constexpr size_t kMaxFileNameBytes = 255;

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    auto lower = [](char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

bool hasSeparatorOrControl(std::string_view s) {
  for (const char c : s) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '/' || c == '\\' || byte < 0x20 || byte == 0x7F) return true;
  }
  return false;
}

// Case does not matter: on a case-insensitive file system "TNAD_005.DATA" is the store.
bool namesStoreFile(std::string_view name, std::string_view storeFileName) {
  if (storeFileName.empty()) return false;
  if (equalsIgnoringAsciiCase(name, storeFileName)) return true;
  for (const std::string_view suffix : kStoreSideFileSuffixes) {
    if (name.size() == storeFileName.size() + suffix.size() &&
        equalsIgnoringAsciiCase(name.substr(0, storeFileName.size()), storeFileName) &&
        equalsIgnoringAsciiCase(name.substr(storeFileName.size()), suffix)) {
      return true;
    }
  }
  return false;
}

}  // namespace

std::optional<std::string> videoFileNameProblem(std::string_view name,
                                                std::string_view storeFileName) {
  if (name.empty()) return "empty name";
  if (name.size() > kMaxFileNameBytes) return "name too long";
  if (!isValidUtf8(name)) return "name is not UTF-8";
  // Hidden names are never videos; temporary downloads and platform files live there.
  if (name.front() == '.') return "hidden or relative name";
  if (hasSeparatorOrControl(name)) return "separator or control character in name";
  // The statements quote names without escaping: a quote would break the one that marks the
  // video as cached, and the queue would fetch the same file for ever.
  if (name.find('\'') != std::string_view::npos) return "quote in name";
  // The name is already decoded once. Something that decodes again into a separator or a
  // relative name would turn into a path as soon as any layer decodes it once more.
  const std::string decodedAgain = percentDecode(name);
  if (decodedAgain != name &&
      (hasSeparatorOrControl(decodedAgain) || decodedAgain.front() == '.')) {
    return "escaped separator in name";
  }
  if (namesStoreFile(name, storeFileName) || namesStoreFile(decodedAgain, storeFileName)) {
    return "name of the ad store";
  }
  return std::nullopt;
}

std::optional<std::string> videoFilePath(const std::string& documents, std::string_view name,
                                         std::string_view storeFileName) {
  if (documents.empty() || videoFileNameProblem(name, storeFileName)) return std::nullopt;
  const std::filesystem::path path = std::filesystem::path(documents) / std::filesystem::path(name);
  // Belt and braces: the joined path must end in exactly this one entry.
  if (path.filename().string() != name) return std::nullopt;
  return path.string();
}

bool isDownloadableUrl(std::string_view text) {
  const auto url = parseUrl(text);
  return url && (url->scheme == "http" || url->scheme == "https") && !url->host.empty();
}

}  // namespace tovani
