// Fuzz target: server text as a video's source URL and as a file name. A name that is accepted
// must address exactly one plain entry of the documents folder that is neither hidden nor the
// store; an address that is accepted for download must be absolute http(s) with a host.
//
//   build/fuzz/tests/fuzz/fuzz_names build/fuzz/corpus-names tests/fuzz/corpus/names
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "net/Url.hpp"
#include "util/Text.hpp"
#include "viewer/video_files.hpp"

namespace {

constexpr std::string_view kDocuments = "/documents";
constexpr std::string_view kStore = "tnad_005.data";

void require(bool condition) {
  if (!condition) __builtin_trap();
}

std::string lower(std::string s) {
  for (char& c : s) c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
  return s;
}

void checkName(std::string_view name) {
  const auto path = tovani::videoFilePath(std::string(kDocuments), name, kStore);
  require(path.has_value() == !tovani::videoFileNameProblem(name, kStore).has_value());
  if (!path) return;
  const std::filesystem::path p(*path);
  require(p.parent_path() == kDocuments);
  require(p.filename() == name);
  require(name.front() != '.' && name.find('/') == std::string_view::npos);
  require(tovani::isValidUtf8(name));
  for (const char* suffix : {"", "-journal", "-wal", "-shm"})
    require(lower(std::string(name)) != std::string(kStore) + suffix);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  checkName(text);
  if (const auto name = tovani::lastPathComponentOfUrl(text)) checkName(*name);
  if (tovani::isDownloadableUrl(text)) {
    const auto url = tovani::parseUrl(text);
    require(url.has_value());
    const std::string scheme = lower(url->scheme);
    require(scheme == "http" || scheme == "https");
    require(!url->host.empty());
  }
  return 0;
}
