#include <gtest/gtest.h>

#include <tuple>

#include "net/Url.hpp"
#include "net/UrlEncoding.hpp"

namespace tovani {
namespace {

// The ad request is escaped a second time as a whole, its encoded device name too. An
// end-card value stays one form field ("<" and ">" are illegal in a URL anyway). A beacon
// keeps its query syntax and existing escapes, but not a blank or an "@".
TEST(UrlEncoding, EachEncoderEscapesItsOwnSetInUpperCaseHex) {
  const auto value = &mp_URLEncodedString, endCard = &endCardFormEncode, legacy = &legacyEscapeURL,
             beacon = &beaconQueryEscape;
  // clang-format off
  const std::tuple<decltype(value), std::string, std::string> cases[] = {
      {value, "a b&c/d", "a%20b%26c%2Fd"}, {value, "iPhone9,3", "iPhone9%2C3"}, {value, "%", "%25"},
      {value, "!*'();:@&=+$,/?%#[]<>",
       "%21%2A%27%28%29%3B%3A%40%26%3D%2B%24%2C%2F%3F%25%23%5B%5D%3C%3E"},
      {value, "Az09-._~\"\\^`{|}\x7F\tcaf\u00E9", "Az09-._~%22%5C%5E%60%7B%7C%7D%7F%09caf%C3%A9"},
      {endCard, "http://cdn.example/bg.png?a=1&b=2^123<b>",
       "http%3A%2F%2Fcdn.example%2Fbg.png%3Fa%3D1%26b%3D2%5E123%3Cb%3E"},
      {legacy, "http://h/conad_tovani.fcgi/M/S$X?xml=vast&osv=10.3&device=iPhone9%2C3",
       "http://h/conad_tovani.fcgi/M/S$X?xml=vast&osv=10.3&device=iPhone9%252C3"},
      {legacy, ":/?#[]@!$&'()*+,;=-._~", ":/?#[]@!$&'()*+,;=-._~"},
      {legacy, "a b%<>\"{}|\\^`\uC544", "a%20b%25%3C%3E%22%7B%7D%7C%5C%5E%60%EC%95%84"},
      {beacon, "a=1&b=x y&u=http://h/p%20q", "a=1&b=x%20y&u=http://h/p%20q"},
      {beacon, "mail=a@b&x=[1]#f&k=\u00E9\"<>", "mail=a%40b&x=[1]#f&k=%C3%A9%22%3C%3E"}};
  // clang-format on
  for (const auto& [encode, in, out] : cases) EXPECT_EQ(encode(in), out) << in;
  EXPECT_EQ(percentDecode("a%20b%2fc%2F 100% %4 %zz%%41"), "a b/c/ 100% %4 %zz%A");
}

// Scheme|host|path|query|fragment|last path component, "-" for an absent query or fragment.
std::string parts(std::string_view text) {
  const auto u = parseUrl(text);
  if (!u) return "none";
  return u->scheme + "|" + u->host + "|" + u->path + "|" + u->query.value_or("-") + "|" +
         u->fragment.value_or("-") + "|" + u->lastPathComponent;
}

// Map links carry coordinates as the host; the end card's bridge is a custom scheme. Bytes
// that are not UTF-8 stay escaped. A decoded name can point out of the folder; callers check
// it before they make a file of it.
TEST(ParseUrl, SplitsUrlsAsThePlatformDoesAndRejectsGarbage) {
  // clang-format off
  const std::pair<std::string_view, std::string> cases[] = {
      {"HTTPS://Cdn.Example:8080/v/a/b.mp4?x=1&y=2#t=3",
       "https|Cdn.Example|/v/a/b.mp4|x=1&y=2|t=3|b.mp4"},
      {"geo://37.5665,126.9780", "geo|37.5665,126.9780||-|-|"},
      {"TovaniKSDKCall://reload", "tovaniksdkcall|reload||-|-|"}, {"http://h?#", "http|h||||"},
      {"http://h?q=/x.mp4", "http|h||q=/x.mp4|-|"}, {"http://h/a/", "http|h|/a/|-|-|a"},
      {"http://h/a//", "http|h|/a//|-|-|a"}, {"http://h/", "http|h|/|-|-|/"}, {"", "|||-|-|"},
      {"clips/c.mp4", "||clips/c.mp4|-|-|c.mp4"},
      {"http://h/my%20clip.mp4", "http|h|/my%20clip.mp4|-|-|my clip.mp4"},
      {"http://h/%ED%95%9C.mp4", "http|h|/%ED%95%9C.mp4|-|-|\uD55C.mp4"},
      {"http://h/%FF.mp4", "http|h|/%FF.mp4|-|-|%FF.mp4"}, {"http://h/a/..", "http|h|/a/..|-|-|.."},
      {"http://h/a%2F..%2Fb", "http|h|/a%2F..%2Fb|-|-|a/../b"}, {"http://h/a b.mp4", "none"},
      {"http://[::1/x", "none"}, {"http://h:port/", "none"},
      {"http://h/\x01", "none"}, {"http://h/\xFF", "none"}, {"%zz", "none"},
      {std::string_view("http://h/\0x", 11), "none"}};
  // clang-format on
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(parts(text), expected) << text;
    EXPECT_EQ(lastPathComponentOfUrl(text).has_value(), expected != "none") << text;
  }
  EXPECT_TRUE(parseUrl("http://h" + std::string(100000, '/')));
}

}  // namespace
}  // namespace tovani
