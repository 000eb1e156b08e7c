#include <gtest/gtest.h>

#include <algorithm>

#include "support/ServingFixture.hpp"
#include "util/NotificationCenter.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"
#include "xml/XMLController.hpp"

namespace tovani::test {
namespace {

// An ad with every extension, white space around the values, and Tracking elements that
// repeat an event, name an unknown one and keep white space in their text.
constexpr const char* kFullAd =
    R"(<VAST version="3.0"><Ad id=" 42	"><InLine><Creatives><Creative><Linear>
  <TrackingEvents>
    <Tracking event="start">https://t.example/start-1</Tracking>
    <Tracking event="pause">https://t.example/pause</Tracking>
    <Tracking event="firstQuartile"> https://t.example/q1 </Tracking>
    <Tracking event="midpoint">https://t.example/mid</Tracking>
    <Tracking event="thirdQuartile">https://t.example/q3</Tracking>
    <Tracking event="complete">https://t.example/complete</Tracking>
    <Tracking event="start">https://t.example/start-2</Tracking>
  </TrackingEvents>
  <MediaFiles><MediaFile>https://cdn.tovani.example/video/v42.mp4</MediaFile></MediaFiles>
  </Linear></Creative></Creatives>
  <Extensions>
    <ClickThrough>
       https://apps.example/42 </ClickThrough>
    <Click> https://ads.tovani.example/b/click </Click>
    <ClickType>type2</ClickType>
    <SkipUse>	0 </SkipUse>
    <EndcardUse> true </EndcardUse>
    <VideoClick>https://ads.tovani.example/b/videoclick</VideoClick>
    <ClickProgress>https://ads.tovani.example/b/clickprogress</ClickProgress>
    <EndcardProgress>https://ads.tovani.example/b/endcardprogress</EndcardProgress>
    <Complete>https://ads.tovani.example/b/complete   </Complete>
    <Etc>https://cdn.tovani.example/bg.jpg^4242^App 42 &#x3000;
    </Etc>
    <Impression>https://ads.tovani.example/b/endcardimp</Impression>
    <frequency>p|7|2</frequency>
    <frequency1>d|20240101|20301231|3</frequency1>
  </Extensions>
</InLine></Ad></VAST>)";

// The ad dictionary of a one-ad answer.
XmlValue adOf(const std::string& answer) {
  XMLController parser;
  EXPECT_TRUE(parser.parseXML(answer));
  return parser.dicRoot()["Ad"];
}

std::string bareAd(const std::string& id, const std::string& inLine) {
  return "<VAST><Ad id=\"" + id + "\"><InLine>" + inLine + "</InLine></Ad></VAST>";
}

const std::vector<const char*> kPlaybackNotifications = {
    kDeviceOrientationDidChange, kPlayerItemDidPlayToEndTime, kApplicationWillResignActive,
    kApplicationWillEnterForeground};

class PlayerStartTest : public ::testing::Test {
 protected:
  void start(const std::string& answer, const std::string& file = "v42.mp4") {
    f.viewer->tnADPlayStart(f.tp.documentsFile(file), adOf(answer));
  }
  size_t observers(const char* name) const {
    return NotificationCenter::defaultCenter().observerCount(f.viewer.get(), name);
  }
  bool isSubview(const std::shared_ptr<View>& view) const {
    const auto& subviews = f.viewer->subviews();
    return view && std::find(subviews.begin(), subviews.end(), view) != subviews.end();
  }

  ServingFixture f;
};

TEST_F(PlayerStartTest, TheShowingIsCountedAndTheAdsFieldsAreCopied) {
  f.viewer->tnAdsExtensionsFrequency = "left from an earlier ad";
  start(kFullAd);
  const auto& v = *f.viewer;

  EXPECT_EQ(f.showings("42"), 1);
  EXPECT_EQ(v.tnAdsExtensionsClickThrough, "https://apps.example/42");
  EXPECT_EQ(v.tnAdsExtensionsClickTracking, "https://ads.tovani.example/b/click");
  EXPECT_EQ(v.tnAdsExtensionsClickType, "type2");
  EXPECT_EQ(v.tnAdsExtensionsSkipUse, "0");
  EXPECT_EQ(v.tnAdsExtensionsEndcardUse, "true");
  EXPECT_EQ(v.tnAdsExtensionsVideoClick, "https://ads.tovani.example/b/videoclick");
  EXPECT_EQ(v.tnAdsExtensionsClickProgress, "https://ads.tovani.example/b/clickprogress");
  EXPECT_EQ(v.tnAdsExtensionsEndcardProgress, "https://ads.tovani.example/b/endcardprogress");
  EXPECT_EQ(v.tnAdsExtensionsComplete, "https://ads.tovani.example/b/complete");
  // The ideographic space is white space too.
  EXPECT_EQ(v.tnAdsExtensionsEtc, "https://cdn.tovani.example/bg.jpg^4242^App 42");
  EXPECT_EQ(v.tnAdsExtensionsImpression, "https://ads.tovani.example/b/endcardimp");
  EXPECT_EQ(v.tnAdsExtensionsFrequency, "p|7|2");
  EXPECT_FALSE(v.skipUseCheck);

  // Tracking URLs are kept as written; the later of two "start" elements wins.
  EXPECT_EQ(v.tnAdsStartTracking, "https://t.example/start-2");
  EXPECT_EQ(v.tnAdsFirstQuartileTracking, " https://t.example/q1 ");
  EXPECT_EQ(v.tnAdsMidpointTracking, "https://t.example/mid");
  EXPECT_EQ(v.tnAdsThirdQuartileTracking, "https://t.example/q3");
  EXPECT_EQ(v.tnAdsCompleteTracking, "https://t.example/complete");
}

TEST_F(PlayerStartTest, StartPutsThePlayingVideoOnTopAndResetsTheShowingsState) {
  f.viewer->tnState = 7;
  f.viewer->tnVideoPlayState = 2;
  f.viewer->actionevent_flag = f.viewer->skipevent_flag = f.viewer->actioncomplete_flag = 1;
  f.viewer->endcardCheck_flag = f.viewer->skipAdReword_flag = 1;
  tovaniResult = 0;
  start(kFullAd);
  const auto& v = *f.viewer;

  ASSERT_NE(f.tp.players->last(), nullptr);
  const auto& player = *f.tp.players->last();
  EXPECT_EQ(player.path(), f.tp.documentsFile("v42.mp4"));
  EXPECT_TRUE(player.holdsLastFrame());
  EXPECT_EQ(std::count(player.calls().begin(), player.calls().end(), "play"), 1);
  EXPECT_EQ(player.calls().back(), "play");

  ASSERT_NE(v.button, nullptr);
  EXPECT_EQ(v.button->kind, View::Kind::Button);
  EXPECT_EQ(v.button->backgroundColor, Color::clear());
  EXPECT_TRUE(isSubview(v.button));
  EXPECT_TRUE(isSubview(v.tnAdEndCardView));
  EXPECT_TRUE(v.tnAdEndCardView->hidden);
  EXPECT_TRUE(isSubview(v.tnVidoeTimeRemain));
  ASSERT_NE(v.tnAdPlayerLayer, nullptr);
  EXPECT_EQ(v.tnAdPlayerLayer->kind, View::Kind::VideoLayer);
  EXPECT_EQ(v.tnAdPlayerLayer->player, v.tnAdPlayer);
  EXPECT_EQ(v.tnAdPlayerLayer->frame, v.bounds());
  EXPECT_EQ(v.subviews().back(), v.tnAdPlayerLayer);

  EXPECT_EQ(f.tp.app->statusBarChanges, std::vector<bool>{true});
  EXPECT_EQ(tovaniResult, 2);
  EXPECT_EQ(v.tnState, 0);
  EXPECT_EQ(v.tnVideoPlayState, 0);
  EXPECT_EQ(v.actionevent_flag + v.skipevent_flag + v.actioncomplete_flag + v.endcardCheck_flag +
                v.skipAdReword_flag,
            0);
  for (const char* name : kPlaybackNotifications) EXPECT_EQ(observers(name), 1u) << name;
}

TEST_F(PlayerStartTest, TheStatusBarIsHiddenRightAfterTheFirstExtensionIsRead) {
  // A repeated element is read through a list and stops the start where it stands.
  const std::string twoClickThroughs =
      bareAd("50",
             "<Extensions><ClickThrough>a</ClickThrough><ClickThrough>b</ClickThrough>"
             "</Extensions>");
  EXPECT_THROW(start(twoClickThroughs), PlatformError);
  EXPECT_TRUE(f.tp.app->statusBarChanges.empty());
  EXPECT_EQ(f.showings("50"), 1);

  const std::string twoClicks =
      bareAd("51",
             "<Extensions><ClickThrough>a</ClickThrough><Click>b</Click><Click>c</Click>"
             "</Extensions>");
  EXPECT_THROW(start(twoClicks), PlatformError);
  EXPECT_EQ(f.tp.app->statusBarChanges, std::vector<bool>{true});
  EXPECT_EQ(f.viewer->tnAdsExtensionsClickThrough, "a");
  EXPECT_EQ(f.showings("51"), 1);
  EXPECT_TRUE(f.tp.players->created.empty());
}

TEST_F(PlayerStartTest, AnAdWithoutExtensionsOrTrackingLeavesEarlierTrackingAndNoSkipControls) {
  f.viewer->tnAdsStartTracking = "https://t.example/earlier-start";
  f.viewer->tnAdsExtensionsClickThrough = "https://apps.example/earlier";
  start(bareAd("60",
               "<Creatives><Creative><Linear><TrackingEvents><Tracking/>"
               "</TrackingEvents></Linear></Creative></Creatives>"));
  const auto& v = *f.viewer;

  for (const Text* field :
       {&v.tnAdsExtensionsClickThrough, &v.tnAdsExtensionsClickTracking,
        &v.tnAdsExtensionsClickType, &v.tnAdsExtensionsSkipUse, &v.tnAdsExtensionsEndcardUse,
        &v.tnAdsExtensionsVideoClick, &v.tnAdsExtensionsClickProgress,
        &v.tnAdsExtensionsEndcardProgress, &v.tnAdsExtensionsComplete, &v.tnAdsExtensionsEtc,
        &v.tnAdsExtensionsImpression, &v.tnAdsExtensionsFrequency}) {
    EXPECT_EQ(*field, std::nullopt);
  }
  EXPECT_EQ(v.tnAdsStartTracking, "https://t.example/earlier-start");
  EXPECT_FALSE(v.skipUseCheck);
  EXPECT_TRUE(f.tp.http->requests(ScriptedHttp::Kind::Blocking).empty());
  EXPECT_NE(f.tp.players->last(), nullptr);
}

TEST_F(PlayerStartTest, ASkippableAdFetchesItsControls) {
  start(bareAd("61", "<Extensions><SkipUse> y </SkipUse></Extensions>"));
  EXPECT_TRUE(f.viewer->skipUseCheck);
  EXPECT_FALSE(f.tp.http->requests(ScriptedHttp::Kind::Blocking).empty());
}

TEST_F(PlayerStartTest, TheEndOfTheVideoIsAnnouncedForItsOwnPlayerOnly) {
  f.tp.players->defaultDuration = 3;
  start(kFullAd);
  const void* player = f.tp.players->last().get();
  int heard = 0, heardForOthers = 0;
  int anchor = 0;
  auto& center = NotificationCenter::defaultCenter();
  center.addObserver(
      &anchor, kPlayerItemDidPlayToEndTime, [&](const Notification&) { ++heard; }, player);
  center.addObserver(
      &anchor, kPlayerItemDidPlayToEndTime, [&](const Notification&) { ++heardForOthers; },
      &anchor);
  f.tp.advance(5);
  EXPECT_EQ(heard, 1);
  EXPECT_EQ(heardForOthers, 0);
  center.removeObserver(&anchor);
}

TEST_F(PlayerStartTest, InitPlayerTearsTheShowingDownAndARestartRegistersEachHandlerOnce) {
  start(kFullAd);
  const auto first = f.tp.players->last();
  const auto layer = f.viewer->tnAdPlayerLayer;
  const auto button = f.viewer->button;
  f.viewer->init_player();

  EXPECT_EQ(f.viewer->tnAdPlayer, nullptr);
  EXPECT_FALSE(first->isPlaying());
  EXPECT_NE(std::find(first->calls().begin(), first->calls().end(), "pause"), first->calls().end());
  EXPECT_EQ(first->observerCount(), 0u);
  EXPECT_FALSE(isSubview(layer));
  EXPECT_FALSE(isSubview(button));
  EXPECT_FALSE(isSubview(f.viewer->tnVidoeTimeRemain));
  EXPECT_EQ(f.viewer->superview(), nullptr);
  for (const char* name : kPlaybackNotifications) EXPECT_EQ(observers(name), 0u) << name;
  // Lifecycle events no longer reach the viewer.
  f.viewer->tnLastTimeStamp = -1;
  f.tp.app->fire(AppEvent::WillResignActive);
  EXPECT_EQ(f.viewer->tnLastTimeStamp, -1);

  f.hostRoot->addSubview(f.viewer);
  start(kFullAd);
  for (const char* name : kPlaybackNotifications) EXPECT_EQ(observers(name), 1u) << name;
  f.tp.app->fire(AppEvent::WillResignActive);
  EXPECT_EQ(f.viewer->tnLastTimeStamp, f.viewer->tnGetCurrentTime());
  EXPECT_EQ(f.showings("42"), 2);
}

TEST_F(PlayerStartTest, InitPlayerIsHarmlessWithoutAPlayerOrWithAStaleTick) {
  EXPECT_NO_THROW(f.viewer->init_player());
  EXPECT_EQ(f.viewer->superview(), nullptr);

  f.hostRoot->addSubview(f.viewer);
  start(kFullAd);
  f.viewer->tnPeriodicTimeObserver = 9999;  // already removed, as after a skip
  EXPECT_NO_THROW(f.viewer->init_player());
  EXPECT_EQ(f.viewer->tnAdPlayer, nullptr);

  start(kFullAd);
  f.viewer->tnPeriodicTimeObserver.reset();
  EXPECT_NO_THROW(f.viewer->init_player());
  EXPECT_NO_THROW(f.viewer->init_player());
}

}  // namespace
}  // namespace tovani::test
