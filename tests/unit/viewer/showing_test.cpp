#include <gtest/gtest.h>

#include <cmath>
#include <sstream>
#include <utility>

#include "support/ViewerFixture.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

const std::string kClose = "tovaniksdkcall://close";

// A host showing ads: show() answers the ad request with `ad` and returns at play time 0 with
// the record of requests cleared.
struct AdScreen : ViewerFixture {
  void show(const ScreenAd& ad) {
    if (!std::exchange(started, true)) start();
    addCached(ad.id, ad.fileName);
    tp.players->durationByFileName[ad.fileName] = ad.duration;
    tp.http->on([](const std::string& url) { return url.find("?xml=vast&") != std::string::npos; },
                answer(vast(adXml(ad))));
    shownAt = tp.queue->now();
    tp.http->clearRecorded();
    TovaniSDK::tovaniShow(hostRoot);
    tp.runUntilIdle();
  }
  void playTo(double t) { tp.advance(std::max(0.0, shownAt + t - tp.queue->now())); }
  // The beacons since the show as "name@playtime name@playtime ...".
  std::string sent() const {
    std::ostringstream out;
    for (const auto& r : tp.http->requests(Kind::Beacon))
      out << (out.tellp() ? " " : "") << r.url.substr(kTrack.size()) << "@"
          << std::round((r.at - shownAt) * 10) / 10;  // whole ticks of 0.3 s
    return out.str();
  }
  RecordingWebView& endCard() const { return *tp.webViews->created.at(0); }
  bool started = false;
  double shownAt = 0;
};

TEST(Showing, RewardTrackingAndEndCardByLengthAndSkippability) {
  struct Case {
    const char* skip;
    double duration, rewardAt;
    const char* beacons;
  };
  // clang-format off
  const Case cases[] = {{"N", 30, 28.5, "start@0 firstQuartile@7.5 midpoint@15 thirdQuartile@22.5 "
                                        "complete@28.5 extcomplete@30 impression@30"},
      // A skippable ad reports complete at fourteen seconds instead.
      {"Y", 30, 28.5, "start@0 firstQuartile@7.5 complete@13.8 midpoint@15 thirdQuartile@22.5 "
                      "extcomplete@30 impression@30"},
      // A long one is rewarded at sixty seconds, a short one never reports complete.
      {"Y", 90, 59.7, "start@0 complete@13.8 firstQuartile@22.5 midpoint@45 thirdQuartile@67.5 "
                      "extcomplete@90 impression@90"},
      {"Y", 10, 8.7, "start@0 firstQuartile@2.7 midpoint@5.1 thirdQuartile@7.5 extcomplete@10.2 "
                     "impression@10.2"}};
  // clang-format on
  for (const auto& c : cases) {
    AdScreen f;
    f.show({.duration = c.duration, .skipUse = c.skip});
    EXPECT_EQ(*c.skip == 'Y' ? "viewer video time skip5 |" : "viewer video time |", f.screen());
    f.playTo(c.rewardAt - 0.3);
    EXPECT_EQ(2, tovaniResult) << c.duration;
    f.playTo(c.rewardAt);
    EXPECT_EQ(0, tovaniResult) << c.duration;
    f.playTo(c.duration + 1);
    EXPECT_EQ(c.beacons, f.sent());
    // A video that ran to its end raises its end card above everything.
    EXPECT_EQ("viewer video card^ |", f.screen()) << c.duration;
    EXPECT_FALSE(f.endCard().bounces) << c.duration;
    EXPECT_FALSE(f.endCard().navigate(kClose));
    EXPECT_EQ(" | 0", f.screen()) << c.duration;
    EXPECT_FALSE(f.tp.app->statusBarHidden) << c.duration;
    f.playTo(c.duration + 20);
    EXPECT_EQ(c.beacons, f.sent()) << "nothing is sent after the card's close";
  }
}

TEST(Showing, AVideoShorterThanHalfASecondHasNoCountdownAndIsRewardedOnItsFirstTick) {
  AdScreen f;
  f.show({.duration = 0.4, .skipUse = "Y"});
  EXPECT_EQ(0, tovaniResult);
  EXPECT_EQ("start@0", f.sent());
  f.playTo(0.3);
  EXPECT_EQ("viewer video time skip5 |", f.screen());  // the digit never moves
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
  f.playTo(1);
  EXPECT_EQ("viewer video card |", f.screen());
  f.endCard().navigate(kClose);
  EXPECT_EQ(" | 0", f.screen());
}

TEST(Showing, CountdownListRefreshAndCardLoadsOfASkippableAdAndASecondShowing) {
  AdScreen f;
  f.show({.skipUse = "Y"});
  auto v = f.viewer();
  EXPECT_EQ("30초", v->tnVidoeTimeRemain->text);
  // Play time, what is on screen, card loads (on each tick of the second second, then at
  // half time), ad-list refreshes (at the first quarter).
  // clang-format off
  const std::tuple<double, const char*, size_t, size_t> steps[] = {{0, "skip5", 0, 0},
      {0.6, "skip4", 0, 0}, {1.5, "skip4", 0, 0}, {2.4, "skip3", 3, 0}, {4.5, "skip1", 3, 0},
      {4.8, "skip0 action", 3, 0}, {7.2, "skip0 action", 3, 0}, {10.2, "skip0 action", 3, 1},
      {15, "skip0 action", 4, 1}};
  // clang-format on
  for (const auto& [at, controls, loads, lists] : steps) {
    f.playTo(at);
    EXPECT_EQ("viewer video time " + std::string(controls) + " |", f.screen()) << at;
    EXPECT_EQ(loads, f.endCard().loads.size()) << at;
    EXPECT_EQ(lists, f.adListUrls().size()) << at;
    EXPECT_FALSE(at < 4.6 && v->skipevent_imageview->tap()) << at;
  }
  EXPECT_EQ("15초", v->tnVidoeTimeRemain->text);
  EXPECT_TRUE(v->skipevent_imageview->tap());
  EXPECT_TRUE(f.urls(Kind::Blocking).empty());  // every image kept since start-up
  f.endCard().navigate(kClose);
  f.show({.skipUse = "Y"});  // a second showing reuses the images and starts with skip off
  EXPECT_EQ("viewer video time skip5 | 3", f.screen());
  EXPECT_FALSE(v->skipevent_imageview->tap());
  EXPECT_TRUE(f.urls(Kind::Blocking).empty());
}

TEST(Showing, SkipBeforeOrAfterTheRewardOrWithoutACardStopsTheVideo) {
  // Only a video that reached its last second raises the card above the controls.
  const std::tuple<const char*, const char*, const char*, const char*, int> cases[] = {
      {"10.2", "true", "viewer card |", " | 3", 2},
      {"28.8", "true", "viewer card^ |", " | 0", 2},
      {"6", "false", " | 3", " | 3", 3}};
  for (const auto& [at, card, seen, closed, playState] : cases) {
    AdScreen f;
    f.show({.skipUse = "Y", .endcardUse = card});
    f.playTo(std::stod(at));
    EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
    f.playTo(std::stod(at) + 10);  // no tick after the tap
    EXPECT_EQ(*card == 't', f.sent().ends_with(std::string(" impression@") + at)) << f.sent();
    EXPECT_EQ(seen, f.screen());
    // Skipped (3) or on the card (2): a long stay in the background changes nothing.
    EXPECT_EQ(playState, f.viewer()->tnVideoPlayState);
    f.tp.app->fire(AppEvent::WillResignActive);
    f.playTo(std::stod(at) + 30);
    f.tp.app->fire(AppEvent::WillEnterForeground);
    EXPECT_EQ(seen, f.screen());
    if (*card == 't') f.endCard().navigate(kClose);
    EXPECT_EQ(closed, f.screen());
  }
}

TEST(Showing, ActionTapCountsProgressBeforeFourteenSecondsAVideoClickAfterAndLeaves) {
  const std::string maps = TOVANI_MAPS_URL;
  // A geo link leaves for the web maps service with its escapes undone; one without a host
  // part has nowhere to go.
  const std::tuple<const char*, const char*, const char*, Text, Strings> cases[] = {
      {"10.2", "clickprogress", " | 3", std::nullopt, {"https://apps.example/7"}},
      {"20.1", "videoclick", " | 3", std::nullopt, {"https://apps.example/7"}},
      {"29.1", "videoclick", " | 0", std::nullopt, {"https://apps.example/7"}},
      {"10.2", "clickprogress", " | 3", "geo://37.5665%2C126.9780", {maps + "37.5665,126.9780"}},
      {"10.2", "clickprogress", " | 3", "geo:37.5665,126.9780", {}}};
  for (const auto& [at, beacon, seen, link, opened] : cases) {
    AdScreen f;
    f.show({.skipUse = "Y"});
    f.playTo(std::stod(at));
    if (link) f.viewer()->tnAdsExtensionsClickThrough = link;
    EXPECT_TRUE(f.viewer()->actionevent_imageview->tap());
    f.playTo(std::stod(at) + 10);  // no tick after the tap
    EXPECT_TRUE(f.sent().ends_with(std::string(beacon) + "@" + at)) << f.sent();
    EXPECT_EQ(opened, f.tp.app->opened);
    EXPECT_EQ(seen, f.screen());
  }
}

TEST(Showing, WithoutTheEndCardSwitchOrWithFalseNoCardIsLoadedAndTheAdClosesAtOnce) {
  // Absent is neither "true" nor empty: no card at the midpoint, the two-second mark, a
  // skip or the end.
  const std::tuple<Text, const char*, double, const char*> cases[] = {
      {std::nullopt, "N", 31, " | 0"},
      {"false", "N", 31, " | 0"},
      {std::nullopt, "Y", 10.2, " | 3"},
      {std::nullopt, "Y", 31, " | 0"}};
  for (const auto& [use, skip, at, seen] : cases) {
    AdScreen f;
    f.show({.skipUse = skip, .endcardUse = use});
    f.playTo(at);
    if (at < 30) {
      EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
    }
    EXPECT_EQ(seen, f.screen()) << use.value_or("absent") << at;
    EXPECT_TRUE(f.endCard().loads.empty()) << use.value_or("absent") << at;
    EXPECT_EQ(std::string::npos, f.sent().find("impression")) << f.sent();
  }
}

TEST(Showing, BackgroundForTenSecondsResumesElevenAbandonsAndOnTheCardNothingHappens) {
  const std::tuple<double, double, const char*> cases[] = {
      {3, 13, "viewer video time |"}, {3, 14, " | 3"}, {31, 60, "viewer video card^ |"}};
  for (const auto& [leave, back, seen] : cases) {
    AdScreen f;
    f.show({});
    f.playTo(leave);
    f.tp.app->fire(AppEvent::WillResignActive);
    f.playTo(back);
    f.tp.app->fire(AppEvent::WillEnterForeground);
    EXPECT_EQ(seen, f.screen()) << back;
    EXPECT_TRUE(back != 13 || f.tp.players->last()->calls().back() == "play");
  }
}

TEST(Showing, AMissingCountdownDigitIsNeverReplacedNorLeavesAnEarlierSkipButtonTappable) {
  AdScreen f;
  f.tp.http->onExact(TOVANI_URL_CDN + std::string("button/3_skip.png"), answer("", 0, 404));
  const ScreenAd ad{.skipUse = "Y", .endcardUse = "false"};
  f.show(ad);
  for (const auto& [at, skip] : {std::pair{0.0, "skip"},
                                 {2.4, "skip"},
                                 {3.3, "skip2"},
                                 {4.5, "skip1"},
                                 {4.8, "skip0 action"}}) {
    f.playTo(at);
    EXPECT_EQ("viewer video time " + std::string(skip) + " |", f.screen()) << at;
  }
  f.playTo(14);
  EXPECT_NE(std::string::npos, f.sent().find("complete@13.8"));  // the showing goes on
  EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
  f.show(ad);  // digit 5 is missing as well: the last showing's active button never shows
  for (double at : {0.0, 2.4}) {
    f.playTo(at);
    EXPECT_EQ("viewer video time skip | 3", f.screen()) << at;
  }
  f.playTo(4.5);
  EXPECT_FALSE(f.viewer()->skipevent_imageview->tap());
  EXPECT_EQ("viewer video time skip1 | 3", f.screen());

  // No image at all: no skip button to see or tap, but the rest of the showing runs.
  AdScreen down;
  down.tp.http->onPrefix(TOVANI_URL_CDN, answer("", 0, 503));
  down.show(ad);
  down.playTo(14);
  EXPECT_FALSE(down.viewer()->skipevent_imageview->tap());
  EXPECT_EQ("viewer video time skip action |", down.screen());
  EXPECT_NE(std::string::npos, down.sent().find("complete@13.8"));
  EXPECT_EQ(1u, down.urls(Kind::Blocking, "0_skip.png").size()) << "blocking once per showing";
}

TEST(Showing, VideoFillsAPhoneKeepsTheOrientationsProportionsOnATabletAndControlsSitInCorners) {
  AdScreen f;
  f.show({.skipUse = "Y"});  // every control in place, laid out on a portrait phone
  auto v = f.viewer();
  const auto screen = [&](const char* model, double w, double h, DeviceOrientation o) {
    f.tp.screen->modelName = model;
    f.tp.screen->size = {w, h};
    f.tp.screen->orientation = o;
  };
  // The first layout ever, on a portrait phone, leaves the layer's own aspect fit.
  EXPECT_EQ(VideoGravity::ResizeAspect, v->tnAdPlayerLayer->videoGravity);
  EXPECT_EQ((Rect{0, 0, 375, 667}), v->tnAdPlayerLayer->frame);
  using O = DeviceOrientation;
  struct Case {
    const char* model;
    double w, h;
    O orientation;
    Rect video;
  };
  // clang-format off
  const Case cases[] = {{"iPhone", 667, 375, O::LandscapeLeft, {0, 0, 667, 375}},
      {"iPhone", 375, 667, O::Portrait, {0, 0, 375, 667}},  // the gravity is left as it was
      {"iPad", 1024, 768, O::Portrait, {0, 0, 768, 1024}},  // a 2x tablet: small skip image
      {"iPad", 768, 1024, O::LandscapeRight, {0, 0, 1024, 768}},
      {"iPad", 1024, 768, O::FaceUp, {0, 0, 768, 1024}}};  // lying flat counts as portrait
  // clang-format on
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.model) + std::to_string(c.w));
    screen(c.model, c.w, c.h, c.orientation);
    v->viewResize_TNSDK();
    EXPECT_EQ((Rect{0, 0, c.w, c.h}), v->frame);
    for (const auto& view : {v->tnAdPlayerLayer, v->tnAdEndCardView, v->button})
      EXPECT_EQ(c.video, view->frame);
    EXPECT_EQ(VideoGravity::ResizeAspect, v->tnAdPlayerLayer->videoGravity);
    EXPECT_EQ((Rect{c.w - 45, 0, 35, 35}), v->tnVidoeTimeRemain->frame);
    EXPECT_EQ((Rect{c.w - 110, c.h - 35, 100, 25}), v->skipevent_imageview->frame);
    EXPECT_EQ((Rect{10, c.h - 55, 45, 45}), v->actionevent_imageview->frame);
  }
  // Only a size that changed is laid out again; a phone's portrait branch then keeps the
  // gravity the layer has, any other device's sets aspect fit.
  v->tnAdPlayerLayer->videoGravity = VideoGravity::Resize;
  v->frame = {};
  v->viewResize_TNSDK();
  EXPECT_EQ(Rect{}, v->frame);
  for (const auto& [model, height, gravity] : {std::tuple{"iPhone", 736, VideoGravity::Resize},
                                               {"iPad", 737, VideoGravity::ResizeAspect}}) {
    screen(model, 414, height, O::Portrait);
    v->viewResize_TNSDK();
    EXPECT_EQ(gravity, v->tnAdPlayerLayer->videoGravity) << model;
  }
  screen("iPhone", 414, 736, O::Portrait);
  // The large skip image goes only above 480 dots: scale by the idiom's density.
  using I = InterfaceIdiom;
  // clang-format off
  const std::tuple<std::optional<I>, std::optional<double>, bool> scales[] = {{I::Phone, 2.0, false},
      {I::Phone, 3.0, true}, {I::Pad, 3.0, false}, {I::TV, 3.0, false}, {I::CarPlay, 3.01, true},
      {std::nullopt, 3.0, true}, {I::Phone, std::nullopt, false}};
  // clang-format on
  for (const auto& [idiom, scale, large] : scales) {
    f.tp.screen->idiom = idiom;
    f.tp.screen->scaleFactor = scale;
    v->resizePortrait();
    const Rect expected = large ? Rect{249, 684, 150, 37} : Rect{304, 701, 100, 25};
    EXPECT_EQ(expected, v->skipevent_imageview->frame)
        << static_cast<int>(idiom.value_or(I::Unspecified)) << " x" << scale.value_or(0);
  }
}

TEST(Showing, BeaconsAreTrimmedAndOnlyTheQueryOfATwoPieceUrlIsEscaped) {
  AdScreen s;
  s.start();
  const std::pair<Text, Text> cases[] = {
      {" http://t.example/a?x=a b&y=%41\n", "http://t.example/a?x=a%20b&y=%41"},
      {"http://u@t.example/a?m=u@x", "http://u@t.example/a?m=u%40x"},
      {"http://t.example/a", "http://t.example/a"},
      {"http://t.example/a?b?c", "http://t.example/a?b?c"},  // three pieces: as trimmed
      {"", std::nullopt},
      {" \t", std::nullopt},
      {std::nullopt, std::nullopt}};
  for (const auto& [given, sent] : cases) {
    s.tp.http->clearRecorded();
    s.viewer()->tnSendEventURL(given);
    EXPECT_EQ(sent ? Strings{*sent} : Strings{}, s.urls(Kind::Beacon)) << given.value_or("none");
  }
}

TEST(Showing, AnUnknownLengthSendsOnlyStartAndAnEndCardWithoutNetworkClosesWithTwo) {
  AdScreen s;
  s.tp.players->defaultDuration = std::nan("");
  s.show({.fileName = "unknown.mp4", .duration = std::nan("")});
  s.playTo(9);
  EXPECT_EQ("start@0", s.sent());
  s.tp.reachability->flags = 0;
  s.viewer()->tnAdPlayerItemDidReachEnd();
  EXPECT_EQ(" | 2", s.screen());
}

TEST(EndCard, EachTypePostsItsPageAndFormBody) {
  AdScreen f;
  f.start();
  auto v = f.viewer();
  const auto post = [&](const Text& type, const Text& etc = "https://cdn.example/bg.jpg^1234") {
    v->tnAdsExtensionsClickType = type;
    v->tnAdsExtensionsEtc = etc;
    v->tnEndCardPrepare();
    const auto& r = f.endCard().loads.back();
    return r.method + " " + r.url.substr(std::string(TOVANI_URL_ENDCARD).size()) + " " + r.body;
  };
  v->tnAdsExtensionsClickThrough = "https://apps.example/7";
  const std::string link = "&appLink=https://apps.example/7";
  const std::string tail = link + "&mediaCode=M&slotCode=S&cateCode=&SDKVer=1.1.2&BName=DemoHost";
  const std::string bg = "&bgImgUrl=https%3A%2F%2Fcdn.example%2Fbg.jpg%5E1234&clickTrackUrl=";
  for (std::string t : {"type1-1", "type1-2"})
    EXPECT_EQ("POST type1-1.php endCardType=" + t + "&appID=1234&clickTrackUrl=" + tail, post(t));
  for (std::string t : {"type2", "type2-1", "type2-3"})
    EXPECT_EQ("POST type2.php appID=1234&endCardType=" + t + bg + tail, post(t));
  for (std::string t : {"type3", "type3-1", "type3-2"})
    EXPECT_EQ("POST type3.php endCardType=" + t + bg + link, post(t));
  for (const Text& t : {Text("Type3"), Text(" type3"), Text("type2-2"), Text(""), Text()})
    EXPECT_EQ("POST iosTovaniEndCard.php ", post(t));
  // Extra data without an app id still loads the page; absent values print as absent.
  EXPECT_EQ("POST type1-1.php endCardType=type1-1&appID=&clickTrackUrl=" + tail,
            post("type1-1", "https://cdn.example/bg.jpg"));
  v->tnAdsExtensionsClickThrough = std::nullopt;
  f.tp.app->name = std::nullopt;
  EXPECT_EQ(
      "POST type2.php appID=(null)&endCardType=type2&bgImgUrl=(null)&clickTrackUrl=&appLink="
      "(null)&mediaCode=M&slotCode=S&cateCode=&SDKVer=1.1.2&BName=(null)",
      post("type2", std::nullopt));
}

TEST(EndCard, CommandsAndPagesOfTheAdHostStayOnTheCardEveryOtherLinkClosesIt) {
  const auto geo = *tovaniViewer::mapsAddressForGeoHost("37.5665,126.9780");
  const std::string own = std::string(TOVANI_PRODUCTION_ROOT_URL) + "/endcard/ios/next.php";
  const std::string lookalike = std::string(TOVANI_PRODUCTION_ROOT_URL) + ".evil.example/x";
  // Found by fuzz_endcard: user information puts another host behind the root's name.
  const std::string behind = std::string(TOVANI_PRODUCTION_ROOT_URL) + ":@evil.example/x";
  struct Case {
    std::string link;
    bool canCall, stays, click;
    Strings opened;
  };
  // clang-format off
  const Case cases[] = {{"tovaniksdkcall://install", true, true, false, {}},
      {"tovaniksdkcall://dance", true, true, false, {}}, {own, true, true, false, {}},
      {"https://store.example/7", true, false, true, {"https://store.example/7"}},
      {"otherapp://open/7", true, false, true, {}},  // not opened, but it left the ad all the same
      {"tel:0212345678", true, false, true, {"tel:0212345678"}},
      {"tel:0212345678", false, false, false, {}}, {"geo:37.5665,126.9780", true, false, false, {}},
      {"geo://37.5665%2C126.9780", true, false, true, {geo}},
      {"geo://37.5%FF", true, false, false, {}},  // decodes to no text: no maps address
      {"https://apps.example/a b", true, false, true, {}}, {lookalike, true, false, true, {lookalike}},
      {behind, true, false, true, {behind}}};
  // clang-format on
  for (const auto& c : cases) {
    AdScreen f;
    f.show({});
    f.playTo(31);
    if (!c.canCall) f.tp.app->openableSchemes = {"http", "https"};
    EXPECT_EQ(c.link == own, f.endCard().navigate(c.link)) << c.link;
    EXPECT_EQ(c.link == own ? Strings{own} : Strings{}, f.endCard().loadedInPlace);
    EXPECT_EQ(c.click, f.sent().ends_with("click@31")) << c.link;
    EXPECT_EQ(c.opened, f.tp.app->opened) << c.link;
    EXPECT_EQ(c.stays ? Results{} : Results{0}, f.host->results) << c.link;
    EXPECT_EQ(c.stays, f.onScreen(f.viewer()->tnAdEndCardView)) << c.link;
  }
}

TEST(EndCard, ReloadReplaysWithoutReportingAnythingTwiceAndAfterASkipGoesOnWhereItStopped) {
  for (const ScreenAd& ad : {ScreenAd{}, ScreenAd{.skipUse = "Y"}}) {
    AdScreen f;
    f.show(ad);
    const double leftAt = *ad.skipUse == "Y" ? 10.2 : 31;
    f.playTo(leftAt);
    if (*ad.skipUse == "Y") f.viewer()->skipevent_imageview->tap();
    EXPECT_FALSE(f.endCard().navigate("tovaniksdkcall://reload"));
    auto v = f.viewer();
    EXPECT_FALSE(f.onScreen(v->tnAdEndCardView));
    EXPECT_TRUE(f.onScreen(v->tnAdPlayerLayer) && f.onScreen(v->tnVidoeTimeRemain));
    const auto& calls = f.tp.players->last()->calls();
    EXPECT_EQ("seek:0", calls.at(calls.size() - 3));
    EXPECT_EQ("play", calls.back());
    f.playTo(leftAt + 31);
    EXPECT_TRUE(f.onScreen(v->tnAdEndCardView));
    EXPECT_TRUE(f.host->results.empty());
    const auto sent = f.sent();  // each once, the ladder taken up again after an early skip
    for (const char* once : {"start@", " firstQuartile@", " midpoint@", " thirdQuartile@",
                             " complete@", "extcomplete@", "impression@"})
      EXPECT_TRUE(sent.find(once) != std::string::npos && sent.find(once) == sent.rfind(once))
          << once << " in " << sent;
  }
}

}  // namespace
}  // namespace tovani::test
