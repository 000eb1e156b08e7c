#pragma once
#include <optional>
#include <string>
#include <string_view>

namespace tovani {

// A URL parsed by an RFC 3986 parser (uriparser). Components are as written (escapes
// kept), except lastPathComponent, which is percent-decoded as the platform reports it.
struct ParsedUrl {
  std::string scheme;  // lower-cased
  std::string host;    // as written; for "geo://37.5,126.9" it is "37.5,126.9"
  std::string path;
  std::optional<std::string> query;
  std::optional<std::string> fragment;
  // Last path component: "b.mp4" for http://h/a/b.mp4?x; "/" for a path of "/"; "" for
  // no path. Decoded, so it may read "..", contain "/" or be empty: a caller that makes a
  // file name of it must check it first.
  std::string lastPathComponent;
};

// None when the text does not parse as an absolute or relative URL reference.
std::optional<ParsedUrl> parseUrl(std::string_view text);

// lastPathComponent of the parsed text, or none when it does not parse.
std::optional<std::string> lastPathComponentOfUrl(std::string_view text);

}  // namespace tovani
