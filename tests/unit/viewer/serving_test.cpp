#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/ViewerFixture.hpp"
#include "util/NotificationCenter.hpp"
#include "util/PlatformError.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

// A viewer on the host's screen with ad 42 cached, handed the ad server's answer: the store
// lookup, the frequency cap and the player start. Dates come from the store engine's clock.
class Serving : public ::testing::Test {
 protected:
  void SetUp() override {
    f.start();
    f.tp.http->clearRecorded();
    f.hostRoot->addSubview(f.viewer());
    f.addCached("42", "v42.mp4");
  }
  static std::string ad(const std::string& id, const Text& rule = std::nullopt) {
    return adXml({.id = id, .fileName = "v" + id + ".mp4", .frequency = rule});
  }
  void parse(const Text& answer) { f.viewer()->parsingXml(answer); }
  std::string played() const {  // the file of the one player started
    return f.tp.players->created.size() == 1 ? f.tp.players->last()->path() : "";
  }
  // The host heard "no ad" and the viewer left the screen without playing anything.
  void expectNoAd(size_t refreshes, const std::string& seen = " | 1") {
    EXPECT_EQ(seen, f.screen());
    EXPECT_TRUE(f.tp.players->created.empty() && tovaniResult == 1);
    EXPECT_EQ(refreshes, f.adListUrls().size());
  }
  Text pass(const Text& rule, const std::string& adid = "42", const std::string& file = "v42.mp4") {
    return f.viewer()->getFreqPassVideoPath(rule, file, adid);
  }
  std::string day(int offset) {
    return f.cell("select strftime('%Y%m%d','now','" + std::to_string(offset) + " day')");
  }
  std::string period(int from, int to, const std::string& max) {
    return "d|" + day(from) + "|" + day(to) + "|" + max;
  }
  size_t observers() const {
    size_t n = 0;
    for (const char* name : {kDeviceOrientationDidChange, kPlayerItemDidPlayToEndTime,
                             kApplicationWillResignActive, kApplicationWillEnterForeground})
      n += NotificationCenter::defaultCenter().observerCount(f.viewer().get(), name);
    return n;
  }
  ViewerFixture f;
  const Text video = f.tp.documentsFile("v42.mp4");
};

TEST_F(Serving, AnAdWithoutExtensionsPlaysPlainItsLastRepeatedEventWinsAndItsIdIsTrimmed) {
  f.addCached(" 42 ", "s42.mp4");
  f.tp.players->durationByFileName["s42.mp4"] = 10;
  parse(
      vast("<Ad id=\" 42 \"><InLine><Creatives><Creative><Linear><TrackingEvents>"
           "<Tracking event=\"start\">http://t.example/first</Tracking>"
           "<Tracking event=\"dance\">http://t.example/dance</Tracking>"
           "<Tracking event=\"start\">http://t.example/second</Tracking>"
           "</TrackingEvents><MediaFiles><MediaFile>" +
           videoUrl("s42.mp4") +
           "</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>"));
  EXPECT_EQ(f.tp.documentsFile("s42.mp4"), played());
  EXPECT_EQ(1, f.showings("42"));
  auto& v = *f.viewer();
  for (const Text& extension :
       {v.tnAdsExtensionsClickTracking, v.tnAdsExtensionsImpression, v.tnAdsExtensionsClickThrough,
        v.tnAdsExtensionsClickType, v.tnAdsExtensionsSkipUse, v.tnAdsExtensionsEndcardUse,
        v.tnAdsExtensionsVideoClick, v.tnAdsExtensionsClickProgress,
        v.tnAdsExtensionsEndcardProgress, v.tnAdsExtensionsComplete, v.tnAdsExtensionsEtc,
        v.tnAdsExtensionsFrequency})
    EXPECT_EQ(std::nullopt, extension);
  EXPECT_EQ("viewer video time |", f.screen());  // no skip or action control
  f.tp.advance(11);
  EXPECT_TRUE(f.urls(Kind::Blocking).empty());
  EXPECT_EQ(Strings{"http://t.example/second"}, f.urls(Kind::Beacon));
  EXPECT_EQ(" | 0", f.screen());  // rewarded, and closed without an end card
}

TEST_F(Serving, APeriodCapCountsThisAdsShowingsInsideItWhileTodayIsInIt) {
  f.addShowings("42", "datetime('now','-1 day')", 2);
  f.addShowings("42", "datetime('now','-30 day')", 4);
  f.addShowings("43", "datetime('now')", 5);
  // clang-format off
  const std::pair<std::string, bool> cases[] = {{period(-10, 10, "3"), true},
      {period(-10, 10, "2"), false}, {period(-40, 1, "6"), false}, {period(-40, 1, "7"), true},
      {period(-40, -20, "3"), true}, {period(5, 20, "0"), true}};  // the last two: not today
  // clang-format on
  for (const auto& [rule, passes] : cases)
    EXPECT_EQ(passes ? video : std::nullopt, pass(rule)) << rule;
  // A capped ad is refused without touching its cached video.
  EXPECT_EQ(Strings{"1"}, f.useFlags("v42.mp4"));
  EXPECT_EQ(Strings{}, f.downloadUrls());
}

TEST_F(Serving, TheRollingSpanReachesBackToTheFirstOfJanuaryOfTheCutOffYear) {
  // An eight-digit date is compared with a dashed one as text: the year decides.
  f.addShowings("42", "datetime('now')");  // one showing today, under a cap of two
  EXPECT_EQ(video, pass("p|7|2"));
  const std::string year = f.cell("select strftime('%Y','now','-7 day')");
  f.addShowings("42", "'" + std::to_string(std::stoi(year) - 1) + "-12-31 23:00:00'", 3);
  EXPECT_EQ(video, pass("p|7|2"));
  f.addShowings("42", "'" + year + "-01-02 10:00:00'");
  EXPECT_EQ(std::nullopt, pass("p|7|2"));
}

TEST_F(Serving, IncompleteOrMisshapenRulesAreNoCapWhileTheFileIsThere) {
  f.addShowings("42", "datetime('now')", 5);  // each of these would cap if its query ran
  const std::string s = day(-10), e = day(10);
  // clang-format off
  for (const Text& rule : {Text(), Text(""), Text("d||" + e + "|3"), Text("d|" + s + "||3"),
           Text("d|" + s + "|" + e + "|"), Text("p||2"), Text("p|7|"), Text("x|1|2"),
           Text("d|1|2"), Text("p|7|2|1"), Text("p|7"), Text("D|" + s + "|" + e + "|1"),
           Text("d |" + s + "|" + e + "|1"), Text("|||"), Text("d | " + s + " | " + e + " | 1")})
    EXPECT_EQ(video, pass(rule)) << rule.value_or("(none)");
  // clang-format on
  EXPECT_EQ(Strings{}, f.downloadUrls());
}

TEST(ServingMissingFile, IsReportedOnceOrWithAnIncompletePeriodTwice) {
  // A second waiting video shows the second report: a refresh while the first download is
  // in flight picks the next waiting record.
  for (const auto& [rule, reports] : {std::pair<Text, int>{Text(), 1}, {"d||20990101|3", 2}}) {
    ViewerFixture f;
    f.start();
    f.addRow("42", "v42.mp4", 1);
    f.addRow("77", "decoy.mp4");
    EXPECT_EQ(std::nullopt, f.viewer()->getFreqPassVideoPath(rule, "v42.mp4", "42"));
    EXPECT_EQ(Strings{"0"}, f.useFlags("v42.mp4"));
    const Strings all = {videoUrl("v42.mp4"), videoUrl("decoy.mp4")};
    EXPECT_EQ(Strings(all.begin(), all.begin() + reports), f.downloadUrls());
  }
}

TEST_F(Serving, AFileNameThatLeavesTheDocumentsFolderIsNeverAPath) {
  f.viewer()->tnadDocumentsPath = f.tp.documentsFile("docs");
  std::filesystem::create_directory(*f.viewer()->tnadDocumentsPath);
  writeFile(f.tp.documentsFile("outside.mp4"), "not ours");
  for (const std::string& name : Strings{"../outside.mp4", "..", "", "/" + *video})
    EXPECT_EQ(std::nullopt, pass(std::nullopt, "42", name)) << name;
  // The VAST lookup refuses such a name and a quote breaks it: neither counts as cached.
  execOnStore(f.storePath(),
              "insert into tn_adverts(ads_no, video_filename, use_flag) values"
              "('1''3', 'v13.mp4', 1), ('14', 'it''s.mp4', 1), "
              "('16', '../outside.mp4', 1)");
  for (const char* file : {"docs/v13.mp4", "docs/it's.mp4"})
    writeFile(f.tp.documentsFile(file), "v");
  parse(vast(adXml({.id = "1&apos;3", .fileName = "v13.mp4"}) +
             adXml({.id = "14", .fileName = "it's.mp4"}) +
             adXml({.id = "16", .media = videoUrl("..%2Foutside.mp4")})));
  expectNoAd(3);
}

TEST_F(Serving, TheFirstPlayableAdOfAListIsPlayedCountedAndNoLaterOneIsLookedAt) {
  // 1: not in the store; 2: capped; 3: video missing on disk; 4: playable; 5: also playable.
  for (const char* id : {"2", "4", "5"}) f.addCached(id, "v" + std::string(id) + ".mp4");
  f.addShowings("2", "datetime('now')");
  f.addRow("3", "v3.mp4", 1);
  parse(vast(ad("1") + ad("2", "p|7|1") + ad("3") + ad("4") + ad("5")));
  EXPECT_EQ(f.tp.documentsFile("v4.mp4"), played());
  EXPECT_EQ(1u, f.adListUrls().size());  // only the ad without a store row refreshes the list
  EXPECT_EQ(Strings{"0"}, f.useFlags("v3.mp4"));  // the missing video is queued again
  EXPECT_EQ(1, f.showings("4"));
  EXPECT_EQ(0, f.showings("5"));
  EXPECT_EQ("viewer video time |", f.screen());
  EXPECT_EQ(2, tovaniResult);
}

TEST_F(Serving, EveryAdOfAListWithoutAStoreRowRefreshesASingleOneOnceACappedOneNever) {
  f.addRow("9", "v9.mp4");  // listed but not downloaded yet
  parse(vast(ad("8") + ad("9")));
  expectNoAd(2);
  parse(vast(ad("8")));
  f.addShowings("42", "datetime('now')");
  parse(vast(ad("42", "p|30|1")));
  expectNoAd(3, " | 1 1 1");
  EXPECT_EQ(Strings{"1"}, f.useFlags("v42.mp4"));
  for (const Text& answer : {Text(vast("<Error>x</Error>")), Text("<VAST><Ad id=\"1\">"),
                             Text("not xml"), Text(""), Text()})
    parse(answer);  // answers without an ad refresh nothing
  expectNoAd(3, " | 1 1 1 1 1 1 1 1");
}

TEST_F(Serving, BlanksAroundTheMediaUrlDoNotMatterButAQuoteInTheIdOrNameMeansNotCached) {
  parse(vast(adXml({.id = "42", .media = "\n   " + videoUrl("v42.mp4") + " \t\n"})));
  EXPECT_EQ(*video, played());
  // The rows exist, yet the lookup built with the quote breaks and finds nothing.
  execOnStore(f.storePath(),
              "insert into tn_adverts(ads_no, video_filename, use_flag) "
              "values('4''2','v42.mp4',1), ('42','v''42.mp4',1)");
  writeFile(f.tp.documentsFile("v'42.mp4"), "video");
  parse(vast(adXml({.id = "4'2", .fileName = "v42.mp4"}) +
             adXml({.id = "42", .fileName = "v'42.mp4"})));
  EXPECT_EQ(1u, f.tp.players->created.size()) << "neither ad is found in the store";
  EXPECT_EQ(2u, f.adListUrls().size());
}

TEST_F(Serving, ASingleTrackingElementFailsAfterTheShowingWasCountedAndReportsNoAdFirst) {
  // A single Tracking element cannot be walked as a list, after the showing was counted.
  EXPECT_THROW(parse("<VAST><Ad id=\"42\"><InLine><Creatives><Creative><Linear><TrackingEvents>"
                     "<Tracking event=\"start\">https://t.example/s</Tracking></TrackingEvents>"
                     "<MediaFiles><MediaFile>" +
                     videoUrl("v42.mp4") +
                     "</MediaFile></MediaFiles></Linear></Creative></Creatives></InLine></Ad>"
                     "</VAST>"),
               PlatformError);
  expectNoAd(0);
  EXPECT_EQ(1, f.showings("42"));
}

TEST_F(Serving, PlayerStartPutsTheVideoOnTopInAFreshState) {
  auto& v = *f.viewer();
  v.tnState = 7;
  v.actionevent_flag = v.skipevent_flag = v.actioncomplete_flag = v.endcardCheck_flag = 1;
  v.skipAdReword_flag = 1;
  parse(vast(ad("42")));
  const auto& player = *f.tp.players->last();
  EXPECT_TRUE(player.holdsLastFrame());
  EXPECT_EQ(1, std::count(player.calls().begin(), player.calls().end(), "play"));
  EXPECT_EQ("play", player.calls().back());
  EXPECT_EQ("viewer video time |", f.screen());
  EXPECT_TRUE(v.tnAdEndCardView->superview() && v.button->superview());  // the card hidden
  EXPECT_EQ(v.tnAdPlayer, v.tnAdPlayerLayer->player);
  EXPECT_EQ(v.tnAdPlayerLayer, v.subviews().back());
  EXPECT_EQ(std::vector<bool>{true}, f.tp.app->statusBarChanges);
  EXPECT_EQ(0, v.tnState + v.actionevent_flag + v.skipevent_flag + v.actioncomplete_flag +
                   v.endcardCheck_flag + v.skipAdReword_flag);
  EXPECT_TRUE(f.urls(Kind::Blocking).empty());  // not skippable: no controls fetched
  EXPECT_EQ(4u, observers());
}

TEST_F(Serving, InitPlayerTearsDownAnyNumberOfTimesAndARestartRegistersEachHandlerOnce) {
  auto& v = *f.viewer();
  parse(vast(ad("42")));
  const auto first = f.tp.players->last();
  const auto layer = v.tnAdPlayerLayer;
  v.init_player();
  EXPECT_FALSE(first->isPlaying());
  EXPECT_EQ(0u, first->observerCount());
  for (const auto& view : {layer, v.button, v.tnVidoeTimeRemain}) EXPECT_FALSE(view->superview());
  EXPECT_FALSE(v.superview());
  EXPECT_EQ(0u, observers());
  parse(vast(ad("42")));
  EXPECT_EQ(4u, observers());
  v.tnPeriodicTimeObserver = 9999;  // already removed, as after a skip
  EXPECT_NO_THROW(v.init_player());
  EXPECT_NO_THROW(v.init_player());
  EXPECT_EQ(nullptr, v.tnAdPlayer);
}

}  // namespace
}  // namespace tovani::test
