#include <gtest/gtest.h>

#include "support/AdScreenFixture.hpp"
#include "tovani/Constants.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

constexpr const char* kTail = "&mediaCode=M&slotCode=S&cateCode=&SDKVer=1.1.2&BName=DemoHost";
constexpr const char* kEscapedEtc = "https%3A%2F%2Fcdn.example%2Fbg.jpg%5E1234";

class EndCardRequest : public ::testing::Test {
 protected:
  void SetUp() override {
    f.start();
    viewer = f.viewer();
    viewer->tnAdsExtensionsEtc = "https://cdn.example/bg.jpg^1234";
    viewer->tnAdsExtensionsClickThrough = "https://apps.example/7";
  }
  // The request the card loads for this type.
  WebRequest prepared(const Text& type) {
    viewer->tnAdsExtensionsClickType = type;
    const size_t before = f.endCard().loads.size();
    viewer->tnEndCardPrepare();
    EXPECT_EQ(before + 1, f.endCard().loads.size());
    return f.endCard().loads.back();
  }
  static std::string page(const std::string& name) { return TOVANI_URL_ENDCARD + name; }

  AdScreenFixture f;
  std::shared_ptr<tovaniViewer> viewer;
};

TEST_F(EndCardRequest, EachTypePostsItsPageAndBody) {
  const std::string link = "&appLink=https://apps.example/7";
  auto r = prepared("type1-1");
  EXPECT_EQ(page("type1-1.php"), r.url);
  EXPECT_EQ("POST", r.method);
  EXPECT_EQ("endCardType=type1-1&appID=1234&clickTrackUrl=" + link + kTail, r.body);

  r = prepared("type1-2");
  EXPECT_EQ(page("type1-1.php"), r.url);
  EXPECT_EQ("endCardType=type1-2&appID=1234&clickTrackUrl=" + link + kTail, r.body);

  for (const char* type : {"type2", "type2-1", "type2-3"}) {
    r = prepared(type);
    EXPECT_EQ(page("type2.php"), r.url);
    EXPECT_EQ(std::string("appID=1234&endCardType=") + type + "&bgImgUrl=" + kEscapedEtc +
                  "&clickTrackUrl=" + link + kTail,
              r.body);
  }
  for (const char* type : {"type3", "type3-1", "type3-2"}) {
    r = prepared(type);
    EXPECT_EQ(page("type3.php"), r.url);
    EXPECT_EQ(
        std::string("endCardType=") + type + "&bgImgUrl=" + kEscapedEtc + "&clickTrackUrl=" + link,
        r.body);
  }
  for (const Text& type : {Text("Type3"), Text(" type3"), Text("type2-2"), Text(""), Text()}) {
    r = prepared(type);
    EXPECT_EQ(page("iosTovaniEndCard.php"), r.url);
    EXPECT_EQ("", r.body);
    EXPECT_EQ("POST", r.method);
  }
}

TEST_F(EndCardRequest, ExtraDataWithoutAnAppIdStillLoadsThePage) {
  viewer->tnAdsExtensionsEtc = "https://cdn.example/bg.jpg";
  EXPECT_EQ(
      std::string("endCardType=type1-1&appID=&clickTrackUrl=&appLink=https://apps.example/7") +
          kTail,
      prepared("type1-1").body);
  EXPECT_EQ(
      "endCardType=type3&bgImgUrl=https%3A%2F%2Fcdn.example%2Fbg.jpg&clickTrackUrl=&appLink="
      "https://apps.example/7",
      prepared("type3").body);

  viewer->tnAdsExtensionsEtc = "";
  EXPECT_EQ(std::string("appID=&endCardType=type2&bgImgUrl=&clickTrackUrl=&appLink=") +
                "https://apps.example/7" + kTail,
            prepared("type2").body);

  // Absent values print as absent.
  viewer->tnAdsExtensionsEtc = std::nullopt;
  viewer->tnAdsExtensionsClickThrough = std::nullopt;
  f.tp.app->name = std::nullopt;
  EXPECT_EQ(
      "appID=(null)&endCardType=type2&bgImgUrl=(null)&clickTrackUrl=&appLink=(null)&mediaCode=M"
      "&slotCode=S&cateCode=&SDKVer=1.1.2&BName=(null)",
      prepared("type2").body);
}

TEST(EndCardSwitch, TrueEmptyAndAbsentAskForTheCard) {
  EXPECT_TRUE(endCardWanted(Text("true")));
  EXPECT_TRUE(endCardWanted(Text("")));
  EXPECT_TRUE(endCardWanted(std::nullopt));
  EXPECT_FALSE(endCardWanted(Text("false")));
  EXPECT_FALSE(endCardWanted(Text("TRUE")));
  EXPECT_FALSE(endCardWanted(Text(" true")));
}

TEST(EndCardSwitch, AnAdWithoutTheSwitchGetsItsCard) {
  AdScreenFixture f;
  ScreenAd ad;
  ad.endcardUse = std::nullopt;
  f.show(ad);
  f.playTo(31);
  EXPECT_EQ(1u, f.endCard().loads.size());
  EXPECT_TRUE(f.onScreen(f.viewer()->tnAdEndCardView));
}

// A thirty-second ad played to its end card.
class EndCardPage : public ::testing::Test {
 protected:
  void SetUp() override {
    f.show(ScreenAd{});
    f.playTo(31);
    ASSERT_TRUE(f.onScreen(f.viewer()->tnAdEndCardView));
  }
  void expectClosedWith(int32_t result) {
    EXPECT_EQ(std::vector<int32_t>{result}, f.host->results);
    EXPECT_FALSE(f.viewer()->isDescendantOf(*f.hostRoot));
    EXPECT_TRUE(f.viewer()->tnAdEndCardView->hidden);
  }
  AdScreenFixture f;
};

TEST_F(EndCardPage, InstallUnknownCommandsAndPagesOfTheAdHostStayOnTheCard) {
  EXPECT_FALSE(f.endCard().navigate("tovaniksdkcall://install"));
  EXPECT_FALSE(f.endCard().navigate("tovaniksdkcall://dance"));
  const std::string own = std::string(TOVANI_PRODUCTION_ROOT_URL) + "/endcard/ios/next.php?a=1";
  EXPECT_TRUE(f.endCard().navigate(own));
  EXPECT_EQ(std::vector<std::string>{own}, f.endCard().loadedInPlace);
  EXPECT_TRUE(f.host->results.empty());
  EXPECT_TRUE(f.onScreen(f.viewer()->tnAdEndCardView));
  EXPECT_EQ(0, f.beaconCount(beacon::kClick));
}

TEST(EndCardLinks, EveryLinkLeavingTheAdHostClosesAndCountsAClickWhenItCanBeOpened) {
  struct Case {
    const char* link;
    bool deviceCalls;
    int clicks;
    std::vector<std::string> opened;
  };
  const Case cases[] = {
      {"https://store.example/app/7", true, 1, {"https://store.example/app/7"}},
      // The system cannot open it, but it left the ad all the same.
      {"otherapp://open/7", true, 1, {}},
      {"tel:0212345678", true, 1, {"tel:0212345678"}},
      {"tel:0212345678", false, 0, {}},
      {"geo://37.5665%2C126.9780",
       true,
       1,
       {*tovaniViewer::mapsAddressForGeoHost("37.5665,126.9780")}},
      {"geo:37.5665,126.9780", true, 0, {}},
  };
  for (const auto& c : cases) {
    AdScreenFixture f;
    f.show(ScreenAd{});
    f.playTo(31);
    if (!c.deviceCalls) f.tp.app->openableSchemes = {"http", "https"};
    EXPECT_FALSE(f.endCard().navigate(c.link)) << c.link;
    EXPECT_EQ(c.clicks, f.beaconCount(beacon::kClick)) << c.link;
    EXPECT_EQ(c.opened, f.tp.app->opened) << c.link;
    EXPECT_EQ(std::vector<int32_t>{0}, f.host->results) << c.link;
    EXPECT_FALSE(f.viewer()->isDescendantOf(*f.hostRoot)) << c.link;
    EXPECT_TRUE(f.viewer()->tnAdEndCardView->hidden) << c.link;
  }
  EXPECT_NE(std::string::npos,
            tovaniViewer::mapsAddressForGeoHost("37.5665,126.9780")->find("ll=37.5665,126.9780"));
}

TEST_F(EndCardPage, ReloadReplaysWithoutReportingAnythingTwice) {
  auto viewer = f.viewer();
  const auto sentBefore = f.beacons().size();
  EXPECT_FALSE(f.endCard().navigate("tovaniksdkcall://reload"));
  EXPECT_TRUE(viewer->tnAdEndCardView->hidden);
  EXPECT_EQ(1, viewer->tnVideoPlayState);
  EXPECT_TRUE(f.onScreen(viewer->tnAdPlayerLayer));
  EXPECT_TRUE(f.onScreen(viewer->tnVidoeTimeRemain));
  const auto& calls = f.tp.players->last()->calls();
  EXPECT_EQ("seek:0", calls.at(calls.size() - 3));
  EXPECT_EQ("play", calls.back());

  f.playTo(31 + 31);
  EXPECT_EQ(sentBefore, f.beacons().size());
  EXPECT_TRUE(f.onScreen(viewer->tnAdEndCardView));
  EXPECT_TRUE(f.host->results.empty());
  f.endCard().navigate("tovaniksdkcall://close");
  expectClosedWith(0);
}

TEST(EndCardReload, AfterAnEarlySkipTheLadderGoesOnWhereItStopped) {
  AdScreenFixture f;
  ScreenAd ad;
  ad.skipUse = "Y";
  f.show(ad);
  f.playTo(10.2);
  f.viewer()->skipevent_imageview->tap();
  f.endCard().navigate("tovaniksdkcall://reload");
  f.playTo(10.2 + 15);
  EXPECT_TRUE(f.onScreen(f.viewer()->skipevent_imageview));
  EXPECT_EQ(1, f.beaconCount(beacon::kMidpoint));
  EXPECT_EQ(1, f.beaconCount(beacon::kFirstQuartile));
  EXPECT_EQ(1, f.beaconCount(beacon::kImpression));
  EXPECT_EQ(1, f.beaconCount(beacon::kComplete));
}

}  // namespace
}  // namespace tovani::test
