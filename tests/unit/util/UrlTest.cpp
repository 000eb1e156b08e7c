#include <gtest/gtest.h>

#include "net/Url.hpp"

namespace tovani {
namespace {

TEST(ParseUrl, SplitsAVideoUrlIntoItsParts) {
  const auto url = parseUrl("HTTPS://Cdn.Example:8080/v/a/b.mp4?x=1&y=2#t=3");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->scheme, "https");
  EXPECT_EQ(url->host, "Cdn.Example");
  EXPECT_EQ(url->path, "/v/a/b.mp4");
  EXPECT_EQ(url->query, "x=1&y=2");
  EXPECT_EQ(url->fragment, "t=3");
  EXPECT_EQ(url->lastPathComponent, "b.mp4");
}

TEST(ParseUrl, LastPathComponentFollowsThePlatform) {
  EXPECT_EQ(lastPathComponentOfUrl("http://h/a/b.mp4?x=1"), "b.mp4");
  EXPECT_EQ(lastPathComponentOfUrl("http://h/a/"), "a");
  EXPECT_EQ(lastPathComponentOfUrl("http://h/a//"), "a");
  EXPECT_EQ(lastPathComponentOfUrl("http://h/"), "/");
  EXPECT_EQ(lastPathComponentOfUrl("http://h"), "");
  EXPECT_EQ(lastPathComponentOfUrl("http://h?q=/x.mp4"), "");
  EXPECT_EQ(lastPathComponentOfUrl("clips/c.mp4"), "c.mp4");
  EXPECT_EQ(lastPathComponentOfUrl("http://h/my%20clip.mp4"), "my clip.mp4");
  EXPECT_EQ(lastPathComponentOfUrl("http://h/%ED%95%9C.mp4"), "\xED\x95\x9C.mp4");
  // Bytes that do not make UTF-8 text are left escaped rather than decoded into garbage.
  EXPECT_EQ(lastPathComponentOfUrl("http://h/%FF.mp4"), "%FF.mp4");
}

TEST(ParseUrl, LastPathComponentCanNameAPlaceOutsideTheFolder) {
  // The decoded name is what the platform reports; callers check it before using it as a file.
  EXPECT_EQ(lastPathComponentOfUrl("http://h/a/.."), "..");
  EXPECT_EQ(lastPathComponentOfUrl("http://h/a%2F..%2Fb"), "a/../b");
}

TEST(ParseUrl, HostOfLandingAndBridgeLinks) {
  const auto geo = parseUrl("geo://37.5665,126.9780");
  ASSERT_TRUE(geo);
  EXPECT_EQ(geo->scheme, "geo");
  EXPECT_EQ(geo->host, "37.5665,126.9780");

  const auto bridge = parseUrl("TovaniKSDKCall://reload");
  ASSERT_TRUE(bridge);
  EXPECT_EQ(bridge->scheme, "tovaniksdkcall");
  EXPECT_EQ(bridge->host, "reload");
  EXPECT_EQ(bridge->path, "");
  EXPECT_FALSE(bridge->query);

  const auto empties = parseUrl("http://h?#");
  ASSERT_TRUE(empties);
  EXPECT_EQ(empties->query, "") << "an empty query is not an absent one";
  EXPECT_EQ(empties->fragment, "");
}

TEST(ParseUrl, RejectsTextThatIsNotAUrl) {
  const std::string_view rejected[] = {
      "http://h/a b.mp4", "http://h/<x>",   "http://[::1/x", "ht tp://h",
      "http://h/\x01",    "http://h:port/", "%zz",           std::string_view("http://h/\0x", 11)};
  for (const std::string_view bad : rejected) {
    EXPECT_FALSE(parseUrl(bad)) << bad;
    EXPECT_FALSE(lastPathComponentOfUrl(bad)) << bad;
  }
}

TEST(ParseUrl, SurvivesHostileInput) {
  std::string deep(100000, '/');
  EXPECT_TRUE(parseUrl("http://h" + deep));
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  EXPECT_FALSE(parseUrl(bytes));
  EXPECT_TRUE(parseUrl(""));
}

}  // namespace
}  // namespace tovani
