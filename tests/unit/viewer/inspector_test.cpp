#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <stdexcept>

#include "support/ViewerFixture.hpp"
#include "tovani/JsonLinesInspector.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

// Keeps every event; "kind:name:outcome" lines make sequences easy to compare.
struct Recorder : TovaniInspector {
  void onEvent(const InspectorEvent& e) override { events.push_back(e); }
  std::string line(const InspectorEvent& e) const {
    std::string out = inspectorEventKindName(e.kind);
    for (const auto& part : {e.name, e.adId, e.outcome})
      if (!part.empty()) out += ":" + part;
    if (e.result) out += "=" + std::to_string(*e.result);
    return out;
  }
  Strings lines(std::optional<InspectorEventKind> only = std::nullopt) const {
    Strings out;
    for (const auto& e : events)
      if (!only || e.kind == *only) out.push_back(line(e));
    return out;
  }
  std::vector<InspectorEvent> events;
};

struct Inspected : ViewerFixture {
  explicit Inspected(bool withStore = true) : ViewerFixture(withStore) {
    TovaniSDK::setInspector(recorder);
  }
  void answerAds(const std::string& body) {
    tp.http->on([](const std::string& url) { return url.find("?xml=vast&") != std::string::npos; },
                answer(body));
  }
  void show() {
    TovaniSDK::tovaniShow(hostRoot);
    tp.runUntilIdle();
  }
  std::shared_ptr<Recorder> recorder = std::make_shared<Recorder>();
};

TEST(Inspector, EveryCheckThatEndsAnAttemptIsNamedAndReadinessForetoldIt) {
  struct Case {
    const char* name;
    std::function<void(Inspected&)> setUp;
    ShowWouldDo foretold;
    Strings events;
  };
  const Case cases[] = {
      {"not started",
       [](Inspected& f) {
         TovaniSDK::setPlatform(f.tp.platform);
         TovaniSDK::delegate(f.host);
       },
       ShowWouldDo::ReportFailed,
       {"check:started:ended=2", "callback:tovaniCallBack=2"}},
      {"store downloading",
       [](Inspected& f) {
         f.tp.http->onPrefix(std::string(TOVANI_BASE_URL) + "data", answer("", 30));
         f.start();
       },
       ShowWouldDo::ReportNoAd,
       {"check:started:passed", "check:store:ended=1", "callback:tovaniCallBack=1"}},
      {"request in flight",
       [](Inspected& f) {
         f.start();
         f.tp.http->on([](const std::string& u) { return u.find("xml=vast") != std::string::npos; },
                       answer("<VAST/>", 1));
         TovaniSDK::tovaniShow(f.hostRoot);
         f.recorder->events.clear();
       },
       ShowWouldDo::Ignored,
       {"check:started:passed", "check:store:passed", "check:request-in-flight:ended"}},
  };
  for (const auto& c : cases) {
    Inspected f(std::string(c.name) != "store downloading");
    c.setUp(f);
    EXPECT_EQ(c.foretold, TovaniSDK::readiness().wouldDo) << c.name;
    f.recorder->events.clear();
    TovaniSDK::tovaniShow(f.hostRoot);
    f.tp.advance(0.1);
    EXPECT_EQ(c.events, f.recorder->lines()) << c.name;
  }
}

TEST(Inspector, EachCandidateGetsItsOutcomeAndReadinessShowsTheCapAndTheRepair) {
  Inspected f;
  f.start();
  f.addCached("42", "v42.mp4");
  f.addCached("43", "v43.mp4");
  f.addRow("44", "v44.mp4", 1);  // recorded as cached, file gone
  f.addRow("45", ".v45.mp4");    // a name the SDK never uses as a path
  f.addShowings("43", "datetime('now')", 2);
  f.addShowings("42", "datetime('now','-400 day')", 1);
  const auto ad = [](const std::string& id, const Text& rule = std::nullopt) {
    return adXml({.id = id, .fileName = "v" + id + ".mp4", .frequency = rule});
  };
  f.answerAds(vast(ad("50") + ad("43", "p|7|2") + ad("44") + ad("42", "x|1")));
  EXPECT_EQ(ShowWouldDo::AskServer, TovaniSDK::readiness().wouldDo);
  f.show();
  EXPECT_EQ((Strings{"candidate:50:not-in-store", "candidate:43:capped",
                     "candidate:44:file-missing", "candidate:42:chosen"}),
            f.recorder->lines(InspectorEventKind::Candidate));
  const auto& answered = f.recorder->events.at(4);
  EXPECT_EQ("request:answered", f.recorder->line(answered));
  EXPECT_EQ(200, answered.status);
  const auto& capped = f.recorder->events.at(6);
  EXPECT_EQ("capped by p|7|2 (rolling cap): 2 showings counted", capped.reason);
  EXPECT_EQ(2, capped.count);

  const Readiness r = TovaniSDK::readiness();
  ASSERT_EQ(4, r.advertCount) << r.problem;
  EXPECT_TRUE(r.storeReadable);
  EXPECT_EQ(2, r.videosCached);
  std::map<std::string, AdvertReadiness> byId;
  for (const auto& a : r.adverts) byId[a.adId] = a;
  EXPECT_EQ(CacheState::Waiting, byId["44"].cache);  // repaired: back in the queue
  EXPECT_EQ(CacheState::Cached, byId["43"].cache);
  EXPECT_EQ(CacheState::Refused, byId["45"].cache);
  EXPECT_EQ("hidden or relative name", byId["45"].refusedBecause);
  ASSERT_TRUE(byId["43"].frequency.has_value());
  EXPECT_TRUE(byId["43"].frequency->blocksNow);
  EXPECT_EQ(2, byId["43"].frequency->counted);
  // Under the store's reading the count frees once the cut-off day leaves this year.
  const std::string year = f.cell("select strftime('%Y','now')");
  EXPECT_EQ(std::to_string(std::stoi(year) + 1) + "-01-08", byId["43"].frequency->blockedUntil);
  EXPECT_EQ(2, byId["43"].impressionsToday);
  // The chosen ad was counted by the showing; its older showing is outside the year.
  EXPECT_EQ(1, byId["42"].impressionsThisYear);
  EXPECT_EQ(1, byId["42"].impressionsLast7Days);
  EXPECT_EQ(1, byId["42"].impressionsToday);
  EXPECT_EQ("malformed", byId["42"].frequency->kind);
  EXPECT_FALSE(byId["42"].frequency->blocksNow);
}

TEST(Inspector, StagesBeaconAnswersAndTheCallbackOfAWholeShowing) {
  Inspected f;
  f.start();
  f.addCached("7", "ad30.mp4");
  f.tp.players->durationByFileName["ad30.mp4"] = 30;
  f.answerAds(vast(adXml({})));
  f.tp.http->onPrefix(kTrack, answer("", 0.2, 204));
  f.tp.http->onExact(kTrack + "midpoint", answer("", 0.5, 500));
  f.show();
  f.tp.advance(31);
  f.tp.webViews->created.at(0)->navigate("tovaniksdkcall://close");
  f.tp.runUntilIdle();
  Strings stages;
  double lastMediaTime = -1;
  for (const auto& e : f.recorder->events) {
    EXPECT_EQ(1u, e.showing);
    if (e.kind != InspectorEventKind::Stage) continue;
    stages.push_back(e.name);
    if (e.mediaTime && e.name != "close") {
      EXPECT_GE(*e.mediaTime, lastMediaTime) << e.name;
      lastMediaTime = *e.mediaTime;
    }
  }
  EXPECT_EQ((Strings{"start", "first-quartile", "midpoint", "endcard-prepared", "third-quartile",
                     "near-end", "reward-point", "video-ended", "endcard-shown", "endcard-close",
                     "close"}),
            stages);
  std::map<std::string, InspectorEvent> answered;
  for (const auto& e : f.recorder->events)
    if (e.kind == InspectorEventKind::Beacon && e.outcome != "sent") answered[e.name] = e;
  EXPECT_EQ(7u, answered.size());
  EXPECT_EQ(204, answered["start"].status);
  EXPECT_EQ(500, answered["midpoint"].status);
  EXPECT_DOUBLE_EQ(0.5, *answered["midpoint"].latencySeconds);
  EXPECT_EQ(Strings{"callback:tovaniCallBack=0"}, f.recorder->lines(InspectorEventKind::Callback));
}

TEST(Inspector, AnAnswerThatIsNotXmlIsReportedWithTheParsersMessageAndPosition) {
  Inspected f;
  f.start();
  f.answerAds("<VAST>\n  <Ad></VAST>");
  f.show();
  const Strings lines = f.recorder->lines();
  ASSERT_EQ(Strings({"parse-failure", "callback:tovaniCallBack=1"}),
            Strings(lines.end() - 2, lines.end()));
  const auto& failure = f.recorder->events[f.recorder->events.size() - 2];
  EXPECT_EQ("mismatched tag", failure.error);
  EXPECT_EQ(2, failure.line);
}

// One run of the main showings; everything a host, the server and the store can see.
std::string observedRun(const std::shared_ptr<TovaniInspector>& inspector) {
  ViewerFixture f;
  if (inspector) TovaniSDK::setInspector(inspector);
  f.start();
  f.addCached("7", "ad30.mp4");
  f.addCached("8", "ad10.mp4");
  f.tp.players->durationByFileName = {{"ad30.mp4", 30}, {"ad10.mp4", 10}};
  const ScreenAd skippable{.id = "8", .fileName = "ad10.mp4", .skipUse = "Y", .frequency = "p|7|1"};
  f.tp.http->onPrefix(kTrack, answer("", 0.2, 500));
  std::ostringstream seen;
  for (const auto& [ad, tap] : {std::pair{ScreenAd{}, 0}, {skippable, 1}, {skippable, 2}}) {
    f.tp.http->on([](const std::string& u) { return u.find("xml=vast") != std::string::npos; },
                  answer(vast(adXml(ad))));
    TovaniSDK::tovaniShow(f.hostRoot);
    f.tp.advance(6);
    if (tap == 1 && f.viewer()->actionevent_imageview) f.viewer()->actionevent_imageview->tap();
    f.tp.advance(30);
    if (f.onScreen(f.viewer()->tnAdEndCardView))
      f.tp.webViews->created.at(0)->navigate("tovaniksdkcall://close");
    f.tp.runUntilIdle();
    seen << f.screen() << "\n";
  }
  for (const auto& r : f.tp.http->requests())
    seen << static_cast<int>(r.kind) << " " << r.method << " " << r.url << " " << r.at << "\n";
  for (const auto& line : f.tp.log->lines) seen << line << "\n";
  for (const auto& row : f.column("select ads_no || use_flag from tn_adverts")) seen << row << " ";
  seen << f.cell("select count(*) from tn_ads_freq");
  return seen.str();
}

struct Thrower : TovaniInspector {
  void onEvent(const InspectorEvent&) override { throw std::runtime_error("inspector broke"); }
};

TEST(Inspector, ChangesNothingAHostTheServerOrTheStoreCanSeeAndAThrowingOneIsContained) {
  const std::string plain = observedRun(nullptr);
  // Rewarded, left by the action tap, then capped: every kind of ending was seen.
  ASSERT_NE(std::string::npos, plain.find(" | 0 3 1\n")) << plain;
  std::ostringstream json;
  EXPECT_EQ(plain, observedRun(std::make_shared<JsonLinesInspector>(json)));
  EXPECT_NE(std::string::npos, json.str().find(R"("kind":"stage","name":"midpoint")"));
  // A throwing inspector adds one log line, and only that.
  const std::string thrown = observedRun(std::make_shared<Thrower>());
  const std::string line =
      "tovani: the inspector threw and is ignored for this event: inspector broke\n";
  const auto at = thrown.find(line);
  ASSERT_NE(std::string::npos, at);
  EXPECT_EQ(plain, thrown.substr(0, at) + thrown.substr(at + line.size()));
}

TEST(Readiness, AnswersBeforeAnyCallDuringAStoreDownloadAndWithADamagedStoreWithoutWriting) {
  {
    TestPlatform tp;
    EXPECT_EQ(ShowWouldDo::Nothing, TovaniSDK::readiness().wouldDo);
  }
  {
    Inspected f(false);
    f.tp.http->onPrefix(std::string(TOVANI_BASE_URL) + "data", answer("", 2));
    f.start();
    const Readiness r = TovaniSDK::readiness();
    EXPECT_TRUE(r.storeDownloading);
    EXPECT_FALSE(r.storePresent);
    EXPECT_EQ("wifi", r.reachability);
  }
  Inspected f(false);
  writeFile(f.storePath(), std::string(4096, 'x'));  // not a database at all
  f.start();
  const auto before = std::filesystem::last_write_time(f.storePath());
  const Readiness r = TovaniSDK::readiness();
  EXPECT_EQ(ShowWouldDo::AskServer, r.wouldDo);
  EXPECT_TRUE(r.storePresent);
  EXPECT_FALSE(r.storeReadable);
  EXPECT_EQ("file is not a database", r.problem);
  EXPECT_EQ(0, r.advertCount);
  EXPECT_EQ(before, std::filesystem::last_write_time(f.storePath()));
  EXPECT_EQ(std::string(4096, 'x'), readFile(f.storePath()));
}

}  // namespace
}  // namespace tovani::test
