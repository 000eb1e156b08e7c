// The ad server as an adversary (or a broken one): what it sends must not touch the host's
// files, reshape a store statement, flood the server, hold the host's thread, trap the user
// on a broken card or fake a click.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "support/ViewerFixture.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/owned_files.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;

const std::string kClose = "tovaniksdkcall://close";

size_t logCount(const TestPlatform& tp, const std::string& part) {
  size_t n = 0;
  for (const auto& line : tp.log->lines) n += line.find(part) != std::string::npos;
  return n;
}

// A host showing one cached ad; show() returns at play time 0 with the requests cleared.
struct HostApp : ViewerFixture {
  void show(const ScreenAd& ad, const std::string& answer = "") {
    if (!std::exchange(started, true)) start();
    addCached(ad.id, ad.fileName);
    tp.players->durationByFileName[ad.fileName] = ad.duration;
    serveVast(answer.empty() ? vast(adXml(ad)) : answer);
    tp.http->clearRecorded();
    shownAt = tp.queue->now();
    TovaniSDK::tovaniShow(hostRoot);
    tp.runUntilIdle();
  }
  void serveVast(const std::string& body) {
    tp.http->on([](const std::string& url) { return url.find("?xml=vast&") != std::string::npos; },
                answer(body));
  }
  void playTo(double t) { tp.advance(std::max(0.0, shownAt + t - tp.queue->now())); }
  Strings beacons() const { return urls(Kind::Beacon); }
  RecordingWebView& card() const { return *tp.webViews->created.at(0); }
  bool started = false;
  double shownAt = 0;
};

TEST(HostileServer, VideosNamedLikeTheHostsFilesNeverReplaceThemAndOnlyOwnVideosExpire) {
  ViewerFixture f;
  writeFile(f.tp.documentsFile("settings.json"), "host settings");
  writeFile(f.tp.documentsFile("intro.mp4"), "host video");
  writeFile(f.tp.documentsFile("legacy.mp4"), "cached before the record existed");
  f.addRow("1", "settings.json");
  f.addRow("2", "intro.mp4");
  f.addRow("3", "ad.mp4");
  f.addRow("4", "legacy.mp4", 1);
  f.tp.http->onPrefix(videoUrl(""), answer("payload"));
  f.start();
  f.viewer()->checkAndDownloadNext();  // a later trigger does not log again
  f.tp.runUntilIdle();

  EXPECT_EQ(Strings{videoUrl("ad.mp4")}, f.downloadUrls());
  EXPECT_EQ("host settings", readFile(f.tp.documentsFile("settings.json")));
  EXPECT_EQ("host video", readFile(f.tp.documentsFile("intro.mp4")));
  EXPECT_EQ("payload", readFile(f.tp.documentsFile("ad.mp4")));
  EXPECT_EQ((Strings{"0", "0", "1", "1"}), f.column("select use_flag from tn_adverts"));
  EXPECT_EQ(1u, logCount(f.tp, "a file of the host has its name: intro.mp4"));
  EXPECT_EQ(std::set<std::string>{"ad.mp4"}, OwnedFiles(f.tp.documents()).names());

  // Sixty days on, only the SDK's own videos go: the one it recorded and the one an older
  // install marked as cached. A recorded name whose file someone else removed is forgotten.
  ASSERT_TRUE(OwnedFiles(f.tp.documents()).add("gone.mp4"));
  const double old = f.tp.clock->now() - 61 * 86400.0;
  for (const char* name : {"intro.mp4", "ad.mp4", "legacy.mp4"})
    f.tp.device->creationTimes[name] = old;
  f.viewer()->deleteMp4File(60);
  EXPECT_TRUE(fs::exists(f.tp.documentsFile("intro.mp4")));
  EXPECT_FALSE(fs::exists(f.tp.documentsFile("ad.mp4")));
  EXPECT_FALSE(fs::exists(f.tp.documentsFile("legacy.mp4")));
  EXPECT_TRUE(OwnedFiles(f.tp.documents()).names().empty());
}

TEST(HostileServer, AQuoteInAnAdListValueIsNeverStoredNorAddsRowsAtAnySync) {
  ViewerFixture f;
  const std::string v = "http://cdn.example/v/";
  std::string injected = advertJson("5", v + "five.mp4");
  injected.insert(injected.find(R"("imp_url")"),
                  R"("mid_url":"m', 'x.mp4', 1), ('6666', 'y', 'z.mp4', 1) --",)");
  const std::string body =
      adListJson({injected, advertJson("6'", v + "six.mp4"), advertJson("7", v + "seven.mp4")});
  f.answerAdList(body);
  f.start();
  f.viewer()->getTNJsonList();
  f.tp.runUntilIdle();
  EXPECT_EQ(Strings{"7:seven.mp4:0"},
            f.column("select ads_no || ':' || video_filename || ':' || use_flag from tn_adverts"));
  EXPECT_EQ((Strings{v + "seven.mp4", v + "seven.mp4"}), f.downloadUrls());  // one per sync
  EXPECT_GE(logCount(f.tp, kStatementRefusedLog), 2u);
}

TEST(HostileServer, OneAnswerReadsAtMostThirtyTwoAdsRefreshingTheListOncePerUncachedOne) {
  // (cached position, ads in the answer, ad-list refreshes, played)
  const std::tuple<size_t, size_t, size_t, bool> cases[] = {
      {20, 3001, 20, true}, {3000, 3001, 32, false}, {31, 32, 31, true}};
  for (const auto& [cached, count, refreshes, played] : cases) {
    HostApp f;
    std::string ads;
    for (size_t i = 0; i < count; ++i)
      ads += adXml({.id = std::to_string(i), .fileName = "v" + std::to_string(i) + ".mp4"});
    f.show({.id = std::to_string(cached), .fileName = "v" + std::to_string(cached) + ".mp4"},
           vast(ads));
    EXPECT_EQ(refreshes, f.adListUrls().size()) << count;
    EXPECT_EQ(played, f.onScreen(f.viewer()->tnAdPlayerLayer)) << count;
    EXPECT_EQ(played ? Results{} : Results{1}, f.host->results) << count;
    EXPECT_EQ(count > 32 ? 1u : 0u, logCount(f.tp, "only the first 32 are read")) << count;
  }
}

TEST(HostileServer, ButtonImagesKeptSinceStartUpMeanAStalledCdnHoldsTheHostForNothing) {
  const std::string buttons = TOVANI_URL_CDN + std::string("button/");
  // Kept after start-up: the stall that follows costs the showing nothing.
  HostApp kept;
  kept.start();
  kept.started = true;
  kept.tp.http->onPrefix(buttons, answer("", 60));
  kept.show({.skipUse = "Y"});
  EXPECT_EQ(kept.shownAt, kept.tp.queue->now());
  EXPECT_EQ("viewer video time skip5 |", kept.screen());
  kept.playTo(4.8);
  EXPECT_EQ("viewer video time skip0 action |", kept.screen());
  EXPECT_TRUE(kept.urls(Kind::Blocking).empty());

  // Never fetched: however the CDN stalls, the showing blocks three seconds in all.
  for (const double delay : {60.0, 2.0}) {
    HostApp down;
    down.tp.http->onPrefix(buttons, answer("", 0, 503));  // the background fetch fails
    down.start();
    down.started = true;
    down.tp.http->onPrefix(buttons, answer("\x89PNG\r\n\x1a\nslow", delay));
    down.show({.skipUse = "Y"});
    EXPECT_DOUBLE_EQ(3.0, down.tp.queue->now() - down.shownAt) << delay;
    double limits = 0;
    for (const auto& r : down.tp.http->requests(Kind::Blocking)) limits += r.idleTimeoutSeconds;
    EXPECT_EQ(delay > 3 ? 3.0 : 4.0, limits) << delay;  // each call gets what is left
    // The missing ones are asked for again in the background, for the next showing.
    EXPECT_EQ(delay > 3 ? 7u : 6u, down.urls(Kind::Data, buttons).size()) << delay;
  }
}

TEST(HostileServer, AnEndCardWhosePageDidNotLoadIsNotShownAndTheResultEarnedStays) {
  using Outcome = RecordingWebView::PageOutcome;
  // (page, skip at, result): skipped before the reward point gives 3, watched through 0.
  const std::tuple<Outcome, double, const char*> cases[] = {
      {Outcome::Failed, 0, " | 0"},
      {Outcome::Stalled, 0, " | 0"},
      {Outcome::Failed, 10.2, " | 3"},
      {Outcome::Loaded, 10.2, "viewer card |"}};
  for (const auto& [page, skipAt, seen] : cases) {
    HostApp f;
    f.show({.skipUse = "Y"});
    f.card().pageOutcome = page;
    if (skipAt > 0) {
      f.playTo(skipAt);
      EXPECT_TRUE(f.viewer()->skipevent_imageview->tap());
    }
    f.playTo(40);
    EXPECT_EQ(seen, f.screen()) << skipAt;
    const bool cardShown = page == Outcome::Loaded;
    const Strings sent = f.beacons();
    EXPECT_EQ(cardShown ? 1 : 0, std::count(sent.begin(), sent.end(), kTrack + "impression"))
        << skipAt;
  }
  // A page that breaks while the card is up (a link inside it that fails) closes the card.
  HostApp f;
  f.show({});
  f.playTo(40);
  EXPECT_EQ("viewer video card^ |", f.screen());
  f.card().reportLoad(false);
  EXPECT_EQ(" | 0", f.screen());
}

TEST(HostileServer, OnlyALinkTheUserTappedLeavesTheAdARedirectOrScriptIsCancelledQuietly) {
  for (const std::string url :
       {"https://elsewhere.example/shop", "tel:+8221234", "geo://37.5,127"}) {
    HostApp f;
    f.show({});
    f.playTo(5);
    EXPECT_FALSE(f.card().navigateOnItsOwn(url)) << url;
    EXPECT_FALSE(f.card().navigateOnItsOwn(url)) << url;
    f.playTo(40);
    EXPECT_TRUE(f.tp.app->opened.empty()) << url;
    Strings sent = f.beacons();
    EXPECT_EQ(0, std::count(sent.begin(), sent.end(), kTrack + "click")) << url;
    EXPECT_EQ("viewer video card^ |", f.screen()) << url;  // the ad ran to its card
    EXPECT_EQ(1u, logCount(f.tp, "navigation nobody tapped")) << url;
    // The same link tapped on the card is the user's click.
    EXPECT_FALSE(f.card().navigate(url)) << url;
    sent = f.beacons();
    EXPECT_EQ(1, std::count(sent.begin(), sent.end(), kTrack + "click")) << url;
    EXPECT_EQ(" | 0", f.screen()) << url;
  }
}

}  // namespace
}  // namespace tovani::test
