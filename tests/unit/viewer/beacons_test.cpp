#include <gtest/gtest.h>

#include "support/AdScreenFixture.hpp"

namespace tovani::test {
namespace {

class Beacon : public ::testing::Test {
 protected:
  void SetUp() override {
    f.start();
    f.tp.http->clearRecorded();
  }
  std::vector<std::string> sentFor(const Text& text) {
    f.tp.http->clearRecorded();
    f.viewer()->tnSendEventURL(text);
    return f.tp.http->urls(ScriptedHttp::Kind::Beacon);
  }
  using Urls = std::vector<std::string>;
  AdScreenFixture f;
};

TEST_F(Beacon, TrimsAndEscapesTheQueryOnlyWhenThereIsExactlyOne) {
  EXPECT_EQ(Urls{"http://t.example/e?a=1%20b&c=2"}, sentFor(" http://t.example/e?a=1 b&c=2\n"));
  EXPECT_EQ(Urls{"http://u@t.example/e?mail=a%40b.example"},
            sentFor("http://u@t.example/e?mail=a@b.example"));
  // Escapes already in the query survive; characters outside URLs are escaped per byte.
  EXPECT_EQ(Urls{"http://t.example/e?q=%20x%22%ED%95%9C"},
            sentFor("http://t.example/e?q=%20x\"한"));
  EXPECT_EQ(Urls{"http://t.example/e/start"}, sentFor("\t http://t.example/e/start \r\n"));
  EXPECT_EQ(Urls{"http://t.example/e?a=1?b=2"}, sentFor("http://t.example/e?a=1?b=2 "));
}

TEST_F(Beacon, EmptyOrUnusableTextSendsNothing) {
  for (const Text& text : {Text(), Text(""), Text(" \n"), Text("not a url"), Text("/relative/path"),
                           Text("http://t.example/a b"), Text("http://t.example/a?b c?d")}) {
    EXPECT_EQ(Urls{}, sentFor(text)) << text.value_or("<absent>");
  }
}

class Landing : public Beacon {};

TEST_F(Landing, MapLinksOpenTheMapsAddressAndOthersOpenWhenTheSystemCan) {
  auto viewer = f.viewer();
  auto& opened = f.tp.app->opened;
  viewer->landingUrl(Text("geo://37.5665,126.9780"));
  viewer->landingUrl(Text("geo://37.5665%2C126.9780"));
  ASSERT_EQ(2u, opened.size());
  EXPECT_EQ(opened[0], opened[1]);
  EXPECT_EQ(tovaniViewer::mapsAddressForGeoHost("37.5665,126.9780"), opened[0]);
  EXPECT_EQ(0u, opened[0].rfind("http://", 0));
  EXPECT_NE(std::string::npos, opened[0].find("?ll=37.5665,126.9780"));

  opened.clear();
  viewer->landingUrl(Text("https://apps.example/7"));
  viewer->landingUrl(Text("tel:0212345678"));
  f.tp.app->openableSchemes = {"http", "https"};
  viewer->landingUrl(Text("tel:0212345678"));
  viewer->landingUrl(Text("otherapp://x"));
  EXPECT_EQ((Urls{"https://apps.example/7", "tel:0212345678"}), opened);
}

TEST_F(Landing, UnusableLinksAreDroppedQuietly) {
  auto viewer = f.viewer();
  viewer->landingUrl(std::nullopt);
  viewer->landingUrl(Text("https://apps.example/a b"));
  viewer->landingUrl(Text("geo:37.5665,126.9780"));
  // A host whose escapes decode to something that is not text has no maps address.
  viewer->landingUrl(Text("geo://37.5%FF"));
  EXPECT_TRUE(f.tp.app->opened.empty());
  EXPECT_TRUE(f.tp.log->contains("geo link without a host part"));
  EXPECT_EQ(std::nullopt, tovaniViewer::mapsAddressForGeoHost(""));
}

}  // namespace
}  // namespace tovani::test
