#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "support/AdScreenFixture.hpp"
#include "tovani/Constants.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

using Beacons = std::vector<std::pair<std::string, double>>;

ScreenAd skippable(double duration = 30) {
  ScreenAd ad;
  ad.skipUse = "Y";
  ad.duration = duration;
  return ad;
}

void expectBeacons(const Beacons& expected, const Beacons& sent) {
  ASSERT_EQ(expected.size(), sent.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(expected[i].first, sent[i].first) << "beacon " << i;
    EXPECT_NEAR(expected[i].second, sent[i].second, 1e-6) << expected[i].first;
  }
}

TEST(Showing, ThirtySecondNonSkippableAdReportsEveryQuartileAndIsRewardedAtItsLastSecond) {
  AdScreenFixture f;
  f.show(ScreenAd{});
  auto viewer = f.viewer();
  EXPECT_EQ("30초", viewer->tnVidoeTimeRemain->text);
  EXPECT_FALSE(f.onScreen(viewer->skipevent_imageview));

  f.playTo(10.2);
  EXPECT_EQ("20초", viewer->tnVidoeTimeRemain->text);
  EXPECT_TRUE(f.endCard().loads.empty());
  f.playTo(15);
  ASSERT_EQ(1u, f.endCard().loads.size());
  EXPECT_EQ(std::string(TOVANI_URL_ENDCARD) + "type1-1.php", f.endCard().loads[0].url);
  f.playTo(28.2);
  EXPECT_EQ(2, tovaniResult);
  f.playTo(28.5);
  EXPECT_EQ(0, tovaniResult);

  f.playTo(31);
  expectBeacons({{beacon::kStart, 0},
                 {beacon::kFirstQuartile, 7.5},
                 {beacon::kMidpoint, 15},
                 {beacon::kThirdQuartile, 22.5},
                 {beacon::kComplete, 28.5},
                 {beacon::kExtComplete, 30},
                 {beacon::kImpression, 30}},
                f.beacons());
  // The first quartile refreshes the inventory.
  bool listRefreshed = false;
  for (const auto& r : f.tp.http->requests(ScriptedHttp::Kind::Data)) {
    if (r.url.find("xml=json") != std::string::npos && std::abs(r.at - 7.5) < 1e-6) {
      listRefreshed = true;
    }
  }
  EXPECT_TRUE(listRefreshed);

  // The end card covers everything after a video that ran to its end.
  EXPECT_TRUE(f.onScreen(viewer->tnAdEndCardView));
  EXPECT_EQ(9999, viewer->tnAdEndCardView->zPosition);
  EXPECT_FALSE(f.endCard().bounces);
  EXPECT_FALSE(f.onScreen(viewer->tnVidoeTimeRemain));
  EXPECT_EQ(7, viewer->tnState);
  EXPECT_TRUE(f.host->results.empty());

  EXPECT_FALSE(f.endCard().navigate("tovaniksdkcall://close"));
  EXPECT_EQ(std::vector<int32_t>{0}, f.host->results);
  EXPECT_FALSE(viewer->isDescendantOf(*f.hostRoot));
  EXPECT_FALSE(f.tp.app->statusBarHidden);
}

TEST(Showing, ThirtySecondSkippableAdCountsDownThenOffersSkipAndAction) {
  AdScreenFixture f;
  f.show(skippable());
  auto viewer = f.viewer();
  auto skip = viewer->skipevent_imageview;
  EXPECT_TRUE(f.onScreen(skip));
  EXPECT_EQ("5_skip.png", f.skipImageName());
  EXPECT_FALSE(skip->tap());

  f.playTo(0.6);
  EXPECT_EQ("4_skip.png", f.skipImageName());
  f.playTo(1.5);
  EXPECT_EQ("4_skip.png", f.skipImageName());
  EXPECT_TRUE(f.endCard().loads.empty());
  f.playTo(2.4);
  EXPECT_EQ("3_skip.png", f.skipImageName());
  // Requested on each tick of the second second (1.8, 2.1, 2.4 s).
  EXPECT_EQ(3u, f.endCard().loads.size());
  f.playTo(3.3);
  EXPECT_EQ("2_skip.png", f.skipImageName());
  f.playTo(4.5);
  EXPECT_EQ("1_skip.png", f.skipImageName());
  EXPECT_FALSE(skip->tap());
  EXPECT_FALSE(f.onScreen(viewer->actionevent_imageview));

  f.playTo(4.8);
  EXPECT_EQ("0_skip.png", f.skipImageName());
  EXPECT_TRUE(skip->userInteractionEnabled);
  EXPECT_TRUE(f.onScreen(viewer->actionevent_imageview));

  f.playTo(15);
  EXPECT_EQ(4u, f.endCard().loads.size());
  f.playTo(28.2);
  EXPECT_EQ(2, tovaniResult);
  f.playTo(28.5);
  EXPECT_EQ(0, tovaniResult);

  f.playTo(31);
  expectBeacons({{beacon::kStart, 0},
                 {beacon::kFirstQuartile, 7.5},
                 {beacon::kComplete, 13.8},
                 {beacon::kMidpoint, 15},
                 {beacon::kThirdQuartile, 22.5},
                 {beacon::kExtComplete, 30},
                 {beacon::kImpression, 30}},
                f.beacons());
  EXPECT_FALSE(f.endCard().navigate("tovaniksdkcall://close"));
  EXPECT_EQ(std::vector<int32_t>{0}, f.host->results);
}

TEST(Showing, LongSkippableAdIsRewardedAtSixtySecondsAndShortOneNeverReportsComplete) {
  {
    AdScreenFixture f;
    f.show(skippable(90));
    f.playTo(59.4);
    EXPECT_EQ(2, tovaniResult);
    f.playTo(59.7);
    EXPECT_EQ(0, tovaniResult);
    f.playTo(91);
    EXPECT_EQ(1, f.beaconCount(beacon::kComplete));
    EXPECT_NEAR(13.8, f.beaconAt(beacon::kComplete), 1e-6);
  }
  {
    AdScreenFixture f;
    f.show(skippable(10));
    f.playTo(8.4);
    EXPECT_EQ(2, tovaniResult);
    f.playTo(8.7);
    EXPECT_EQ(0, tovaniResult);
    f.playTo(11);
    EXPECT_EQ(0, f.beaconCount(beacon::kComplete));
    EXPECT_EQ(1, f.beaconCount(beacon::kExtComplete));
  }
}

TEST(Showing, UnknownDurationSendsOnlyStartAndRewardsASkippableAdAtOnce) {
  AdScreenFixture f;
  ScreenAd ad = skippable();
  ad.duration = std::numeric_limits<double>::quiet_NaN();
  f.show(ad);
  EXPECT_EQ(0, tovaniResult);
  f.playTo(20);
  expectBeacons({{beacon::kStart, 0}}, f.beacons());
  EXPECT_EQ("", f.viewer()->tnVidoeTimeRemain->text);
  // No countdown runs: the view keeps the digit it was made with and takes no tap.
  EXPECT_EQ("5_skip.png", f.skipImageName());
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
}

TEST(SkipTap, BeforeTheRewardPointEndsWithThreeOnAnEndCardLeftBelowTheControls) {
  AdScreenFixture f;
  f.show(skippable());
  auto viewer = f.viewer();
  f.playTo(10.2);
  EXPECT_TRUE(viewer->skipevent_imageview->tap());
  EXPECT_EQ(3, tovaniResult);
  EXPECT_EQ(2, viewer->tnState);
  EXPECT_EQ(2, viewer->tnVideoPlayState);
  EXPECT_TRUE(f.onScreen(viewer->tnAdEndCardView));
  EXPECT_NE(9999, viewer->tnAdEndCardView->zPosition);
  EXPECT_TRUE(f.endCard().bounces);
  EXPECT_FALSE(f.onScreen(viewer->skipevent_imageview));
  EXPECT_FALSE(f.onScreen(viewer->tnAdPlayerLayer));
  EXPECT_NEAR(10.2, f.beaconAt(beacon::kImpression), 1e-6);

  f.playTo(20);
  EXPECT_EQ(0, f.beaconCount(beacon::kMidpoint));
  f.endCard().navigate("tovaniksdkcall://close");
  EXPECT_EQ(std::vector<int32_t>{3}, f.host->results);
}

TEST(SkipTap, AfterTheRewardPointKeepsTheRewardAndRaisesTheEndCard) {
  AdScreenFixture f;
  f.show(skippable());
  f.playTo(28.8);
  EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
  EXPECT_EQ(0, tovaniResult);
  EXPECT_EQ(7, f.viewer()->tnState);
  EXPECT_EQ(9999, f.viewer()->tnAdEndCardView->zPosition);
  f.endCard().navigate("tovaniksdkcall://close");
  EXPECT_EQ(std::vector<int32_t>{0}, f.host->results);
}

TEST(SkipTap, WithoutAnEndCardClosesAtOnce) {
  AdScreenFixture f;
  ScreenAd ad = skippable();
  ad.endcardUse = "false";
  f.show(ad);
  f.playTo(6);
  EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
  EXPECT_EQ(std::vector<int32_t>{3}, f.host->results);
  EXPECT_FALSE(f.viewer()->isDescendantOf(*f.hostRoot));
  EXPECT_EQ(0, f.beaconCount(beacon::kImpression));
  EXPECT_TRUE(f.endCard().loads.empty());
}

TEST(ActionTap, ReportsProgressBeforeFourteenSecondsAndAVideoClickAfterThenLeaves) {
  struct Case {
    double at;
    const char* beacon;
    int32_t result;
  };
  for (const Case c : {Case{10.2, beacon::kClickProgress, 3}, Case{20.1, beacon::kVideoClick, 3},
                       Case{29.1, beacon::kVideoClick, 0}}) {
    AdScreenFixture f;
    f.show(skippable());
    f.playTo(c.at);
    auto viewer = f.viewer();
    auto player = viewer->tnAdPlayer;
    EXPECT_TRUE(viewer->actionevent_imageview->tap());
    EXPECT_EQ(1, f.beaconCount(c.beacon)) << c.at;
    EXPECT_EQ(std::vector<std::string>{"https://apps.example/7"}, f.tp.app->opened);
    EXPECT_EQ(std::vector<int32_t>{c.result}, f.host->results);
    EXPECT_FALSE(viewer->isDescendantOf(*f.hostRoot));
    EXPECT_TRUE(viewer->tnAdEndCardView->hidden);
    const auto before = f.beacons().size();
    f.playTo(c.at + 10);
    EXPECT_EQ(before, f.beacons().size()) << "no tick after the tap";
  }
}

TEST(Lifecycle, ReturningWithinTenSecondsResumesAndElevenAbandonsTheAd) {
  {
    AdScreenFixture f;
    f.show(ScreenAd{});
    f.playTo(3);
    f.tp.app->fire(AppEvent::WillResignActive);
    f.playTo(13);
    f.tp.app->fire(AppEvent::WillEnterForeground);
    EXPECT_EQ("play", f.tp.players->last()->calls().back());
    EXPECT_EQ(1, f.viewer()->tnLastTimeStampFlag);
    EXPECT_TRUE(f.host->results.empty());
  }
  {
    AdScreenFixture f;
    f.show(ScreenAd{});
    f.playTo(3);
    f.tp.app->fire(AppEvent::WillResignActive);
    f.playTo(14);
    f.tp.app->fire(AppEvent::WillEnterForeground);
    EXPECT_EQ(std::vector<int32_t>{3}, f.host->results);
    EXPECT_FALSE(f.viewer()->isDescendantOf(*f.hostRoot));
    EXPECT_TRUE(f.viewer()->tnAdEndCardView->hidden);
  }
  {
    // On the end card the time away does not matter.
    AdScreenFixture f;
    f.show(ScreenAd{});
    f.playTo(31);
    f.tp.app->fire(AppEvent::WillResignActive);
    f.playTo(60);
    f.tp.app->fire(AppEvent::WillEnterForeground);
    EXPECT_TRUE(f.host->results.empty());
    EXPECT_TRUE(f.onScreen(f.viewer()->tnAdEndCardView));
  }
}

TEST(Showing, EndCardWithoutNetworkClosesWithTwo) {
  AdScreenFixture f;
  f.show(ScreenAd{});
  f.playTo(29.7);
  f.tp.reachability->flags = 0;
  f.playTo(31);
  EXPECT_EQ(std::vector<int32_t>{2}, f.host->results);
  EXPECT_EQ(0, f.beaconCount(beacon::kImpression));
  EXPECT_FALSE(f.viewer()->isDescendantOf(*f.hostRoot));
}

TEST(CountdownImages, ASecondShowingReusesTheImagesOfTheFirst) {
  AdScreenFixture f;
  ScreenAd ad = skippable();
  ad.endcardUse = "false";
  f.show(ad);
  f.playTo(6);
  f.viewer()->skipevent_imageview->tap();
  EXPECT_EQ(6u, f.blockingFetches("_skip.png"));
  EXPECT_EQ(1u, f.blockingFetches("click.png"));

  f.show(ad);
  EXPECT_EQ("5_skip.png", f.skipImageName());
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
  f.playTo(4.8);
  EXPECT_EQ("0_skip.png", f.skipImageName());
  EXPECT_TRUE(f.onScreen(f.viewer()->actionevent_imageview));
  EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
  EXPECT_EQ(6u, f.blockingFetches("_skip.png"));
  EXPECT_EQ(1u, f.blockingFetches("click.png"));
  EXPECT_EQ((std::vector<int32_t>{3, 3}), f.host->results);
}

int linesContaining(const CapturedLog& log, const std::string& text) {
  int count = 0;
  for (const auto& line : log.lines) count += line.find(text) != std::string::npos;
  return count;
}

TEST(CountdownImages, AMissingDigitIsNeverReplacedAndTheShowingGoesOn) {
  AdScreenFixture f;
  f.failCdnImage("3_skip.png");
  f.show(skippable());
  EXPECT_EQ("", f.skipImageName());
  f.playTo(2.4);
  EXPECT_EQ("", f.skipImageName());
  f.playTo(3.3);
  EXPECT_EQ("2_skip.png", f.skipImageName());
  f.playTo(4.5);
  EXPECT_EQ("1_skip.png", f.skipImageName());
  f.playTo(4.8);
  EXPECT_EQ("0_skip.png", f.skipImageName());
  EXPECT_TRUE(f.onScreen(f.viewer()->actionevent_imageview));
  f.playTo(31);
  EXPECT_EQ(1, f.beaconCount(beacon::kComplete));
  EXPECT_EQ(1, linesContaining(*f.tp.log, "playback tick stopped short"));
  f.endCard().navigate("tovaniksdkcall://close");
  EXPECT_EQ(std::vector<int32_t>{0}, f.host->results);
}

TEST(CountdownImages, AMissingDigitLeavesNoEarlierSkipButtonTappable) {
  AdScreenFixture f;
  f.failCdnImage("5_skip.png");
  ScreenAd ad = skippable();
  ad.endcardUse = "false";
  f.show(ad);
  f.playTo(6);
  EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
  f.show(ad);
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
  f.playTo(4.5);
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
  EXPECT_EQ((std::vector<int32_t>{3}), f.host->results);
}

TEST(CountdownImages, ACdnThatIsDownIsNotAskedOnEveryTick) {
  AdScreenFixture f;
  f.failCdnImage("0_skip.png");
  f.show(skippable());
  f.playTo(10);
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
  f.playTo(31);
  // Once at playback start and once more on the first tick, not once per tick.
  EXPECT_EQ(2u, f.blockingFetches("0_skip.png"));
  EXPECT_EQ(0u, f.blockingFetches("1_skip.png"));
  EXPECT_TRUE(f.onScreen(f.viewer()->tnAdEndCardView));
  EXPECT_EQ(0, tovaniResult);
}

}  // namespace
}  // namespace tovani::test
