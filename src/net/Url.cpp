#include "net/Url.hpp"

#include <uriparser/Uri.h>

#include <algorithm>

#include "net/UrlEncoding.hpp"
#include "util/Text.hpp"

namespace tovani {

namespace {

std::string textOf(const UriTextRangeA& range) {
  if (range.first == nullptr || range.afterLast == nullptr) return {};
  return std::string(range.first, range.afterLast);
}

std::optional<std::string> optionalTextOf(const UriTextRangeA& range) {
  if (range.first == nullptr) return std::nullopt;
  return textOf(range);
}

// Owns the parser's allocations for the time of one parse.
class ParsedUri {
 public:
  explicit ParsedUri(std::string_view text) {
    // An empty view may carry no pointer at all, which the parser refuses.
    const char* first = text.empty() ? "" : text.data();
    const char* errorPos = nullptr;
    ok_ = uriParseSingleUriExA(&uri_, first, first + text.size(), &errorPos) == URI_SUCCESS;
  }
  ~ParsedUri() {
    if (ok_) uriFreeUriMembersA(&uri_);
  }
  ParsedUri(const ParsedUri&) = delete;
  ParsedUri& operator=(const ParsedUri&) = delete;

  bool ok() const { return ok_; }
  const UriUriA& uri() const { return uri_; }

 private:
  UriUriA uri_{};
  bool ok_ = false;
};

// The path as written. The parser keeps the segments only; a path that follows an authority
// or begins at the root gets its leading slash back ("http://h/" has one empty segment).
std::string pathOf(const UriUriA& uri) {
  std::string path;
  const bool rooted = uri.absolutePath || uri.hostText.first != nullptr;
  for (const UriPathSegmentA* segment = uri.pathHead; segment; segment = segment->next) {
    if (rooted || segment != uri.pathHead) path.push_back('/');
    path += textOf(segment->text);
  }
  return path;
}

// The platform's reading of a path's last component: trailing slashes do not count, the
// root alone is "/", and the component is shown decoded. Escapes whose bytes are not UTF-8
// are kept as written rather than turned into broken text.
std::string lastComponentOf(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  if (path == "/") return "/";
  const size_t slash = path.rfind('/');
  const std::string_view component =
      slash == std::string_view::npos ? path : path.substr(slash + 1);
  std::string decoded = percentDecode(component);
  if (!isValidUtf8(decoded)) return std::string(component);
  return decoded;
}

}  // namespace

std::optional<ParsedUrl> parseUrl(std::string_view text) {
  const ParsedUri parsed(text);
  if (!parsed.ok()) return std::nullopt;
  const UriUriA& uri = parsed.uri();

  ParsedUrl url;
  url.scheme = textOf(uri.scheme);
  std::transform(url.scheme.begin(), url.scheme.end(), url.scheme.begin(), [](char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  });
  url.host = textOf(uri.hostText);
  url.path = pathOf(uri);
  url.query = optionalTextOf(uri.query);
  url.fragment = optionalTextOf(uri.fragment);
  url.lastPathComponent = lastComponentOf(url.path);
  return url;
}

std::optional<std::string> lastPathComponentOfUrl(std::string_view text) {
  auto url = parseUrl(text);
  if (!url) return std::nullopt;
  return std::move(url->lastPathComponent);
}

}  // namespace tovani
