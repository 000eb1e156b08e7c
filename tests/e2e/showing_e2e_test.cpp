// Whole showings: the demo host against the development ad server on loopback, with the
// real Linux platform (libcurl, GLib, GStreamer). Assertions come from what the server
// received and what the host was told.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include "tovani/demo/Demo.hpp"

namespace tovani::demo {
namespace {

constexpr double kSpeed = 6;

DemoOptions optionsFor(const std::string& adId) {
  DemoOptions o;
  o.adId = adId;
  o.speed = kSpeed;
  o.out = [](const std::string&) {};
  return o;
}

std::string scenario(const std::string& name) {
  return std::string(TOVANI_SOURCE_DIR) + "/tools/adserver/scenarios/" + name + ".json";
}

// The tracking events the server received, in arrival order ("start", "impression", ...).
std::vector<std::string> events(const ShowingReport& showing) {
  std::vector<std::string> out;
  for (const auto& b : showing.requests) {
    if (b.route != "track") continue;
    out.push_back(b.path.substr(b.path.find_last_of('/') + 1));
  }
  return out;
}

int countOf(const std::vector<std::string>& list, const std::string& item) {
  return static_cast<int>(std::count(list.begin(), list.end(), item));
}

bool has(const std::vector<std::string>& list, const std::string& item) {
  return countOf(list, item) > 0;
}

TEST(EndToEnd, ColdStartThenFullNonSkippableShowingRewardsAndShowsTheEndCard) {
  const auto report = runDemo(optionsFor("1002"));
  ASSERT_TRUE(report.inventoryReady) << report.message;
  ASSERT_EQ(report.showings.size(), 1u);
  const auto& showing = report.showings[0];
  EXPECT_EQ(showing.adId, "1002");
  EXPECT_FALSE(showing.skippable);
  ASSERT_TRUE(showing.result.has_value());
  EXPECT_EQ(*showing.result, 0);
  EXPECT_TRUE(report.ok) << report.message;

  // The cold start goes store file → ad list → videos, and only then the ad request.
  std::vector<std::string> routes;
  for (const auto& r : report.allRequests) {
    if (routes.empty() || routes.back() != r.route) routes.push_back(r.route);
  }
  ASSERT_GE(routes.size(), 4u);
  EXPECT_EQ(routes[0], "store");
  EXPECT_EQ(routes[1], "adlist");
  EXPECT_EQ(routes[2], "video");

  const auto seen = events(showing);
  const std::vector<std::string> vast = {"start", "firstQuartile", "midpoint", "thirdQuartile",
                                         "complete"};
  std::vector<std::string> vastSeen;
  for (const auto& e : seen) {
    if (std::find(vast.begin(), vast.end(), e) != vast.end()) vastSeen.push_back(e);
  }
  EXPECT_EQ(vastSeen, vast);
  EXPECT_EQ(countOf(seen, "impression"), 1) << "end-card impression once";
  EXPECT_FALSE(has(seen, "click"));
  // The end-card page was posted ahead of time.
  EXPECT_TRUE(std::any_of(showing.requests.begin(), showing.requests.end(), [](const Beacon& b) {
    return b.route == "endcard" && b.method == "POST" &&
           b.path.find("type1-1.php") != std::string::npos;
  }));
}

TEST(EndToEnd, SkipBeforeTheRewardPointEndsWithThreeAndAfterItWithZero) {
  auto early = optionsFor("1001");
  early.actions.skipAt = 8;
  const auto before = runDemo(early);
  ASSERT_EQ(before.showings.size(), 1u);
  ASSERT_TRUE(before.showings[0].result.has_value()) << before.message;
  EXPECT_EQ(*before.showings[0].result, 3);
  const auto seenBefore = events(before.showings[0]);
  EXPECT_TRUE(has(seenBefore, "start"));
  EXPECT_FALSE(has(seenBefore, "complete")) << "no complete before 14 s of a skippable ad";
  EXPECT_TRUE(has(seenBefore, "impression")) << "a skipped ad still shows its end card";

  auto late = optionsFor("1001");
  late.speed = 3;
  late.actions.skipAt = 29.3;
  const auto after = runDemo(late);
  ASSERT_TRUE(after.showings[0].result.has_value()) << after.message;
  EXPECT_EQ(*after.showings[0].result, 0);
  EXPECT_EQ(countOf(events(after.showings[0]), "complete"), 1) << "the 14-second complete";
}

TEST(EndToEnd, ActionTapSendsTheClickBeaconOpensTheLandingPageAndEndsWithThree) {
  auto o = optionsFor("1001");
  o.actions.actionAt = 10;
  const auto report = runDemo(o);
  ASSERT_EQ(report.showings.size(), 1u);
  const auto& showing = report.showings[0];
  ASSERT_TRUE(showing.result.has_value()) << report.message;
  EXPECT_EQ(*showing.result, 3);
  const auto seen = events(showing);
  EXPECT_EQ(countOf(seen, "clickprogress"), 1);
  EXPECT_FALSE(has(seen, "videoclick"));
  EXPECT_FALSE(has(seen, "impression")) << "the action tap never shows the end card";
  ASSERT_FALSE(showing.openedUrls.empty());
  EXPECT_EQ(showing.openedUrls.back().rfind("http", 0), 0u);
}

TEST(EndToEnd, EndCardReloadReplaysWithoutNewEventsThenCloseKeepsTheReward) {
  auto o = optionsFor("1002");
  o.actions.endCardLink = "reload";
  const auto report = runDemo(o);
  ASSERT_TRUE(report.showings[0].result.has_value()) << report.message;
  EXPECT_EQ(*report.showings[0].result, 0);
  const auto seen = events(report.showings[0]);
  EXPECT_EQ(countOf(seen, "start"), 1);
  EXPECT_EQ(countOf(seen, "complete"), 1);
  EXPECT_EQ(countOf(seen, "impression"), 1);
  int shown = 0;
  for (const auto& e : report.showings[0].timeline) {
    shown += e.lane == "endcard" && e.label == "end card shown";
  }
  EXPECT_EQ(shown, 2) << "the end card comes back after the replay";
}

TEST(EndToEnd, LeavingForElevenSecondsAbandonsTheAdButTenSecondsResumesIt) {
  for (const auto& [away, result] : {std::pair{11.0, 3}, {10.0, 0}}) {
    auto o = optionsFor("1002");
    o.actions.backgroundAt = 4;
    o.actions.backgroundFor = away;
    const auto report = runDemo(o);
    ASSERT_TRUE(report.showings[0].result.has_value()) << report.message;
    EXPECT_EQ(*report.showings[0].result, result) << away;
    EXPECT_EQ(has(events(report.showings[0]), "complete"), result == 0) << away;
  }
}

TEST(EndToEnd, FrequencyCapFallsThroughToTheNextAdAndReportsNoAdWhenNoneIsLeft) {
  DemoOptions o;
  o.scenarioFile = scenario("frequency_cap");
  o.speed = 10;
  o.showings = 2;
  o.out = [](const std::string&) {};
  const auto report = runDemo(o);
  ASSERT_EQ(report.showings.size(), 2u) << report.message;
  EXPECT_EQ(report.showings[0].adId, "2001");
  EXPECT_EQ(report.showings[1].adId, "2002") << "2001 is capped after one showing in 7 days";
  ASSERT_TRUE(report.showings[1].result.has_value());
  EXPECT_EQ(*report.showings[1].result, 0);

  // The same capped ad alone: the second showing has nothing left to play.
  const std::string only = ::testing::TempDir() + "/capped_only.json";
  {
    std::ofstream out(only);
    out << R"({"name": "capped-only",
      "adverts": [{"ads_no": 3001, "sources": [{"video": "video_10s.mp4"}]}],
      "vast": [{"id": 3001, "extensions": {"SkipUse": "false", "EndcardUse": "false",
                                            "frequency1": "p|7|1"}}]})";
  }
  o.scenarioFile = only;
  const auto capped = runDemo(o);
  ASSERT_EQ(capped.showings.size(), 2u) << capped.message;
  ASSERT_TRUE(capped.showings[0].result.has_value());
  EXPECT_EQ(*capped.showings[0].result, 0);
  ASSERT_TRUE(capped.showings[1].result.has_value());
  EXPECT_EQ(*capped.showings[1].result, 1);
}

TEST(EndToEnd, ServerFaultsEndWithTheDesignedCodesAndNoCrash) {
  struct Case {
    const char* atStart;
    const char* beforeShow;
    int32_t result;
  };
  const Case cases[] = {
      // A VAST answer that stalls past the 3-second idle time-out: the request fails.
      {"", R"({"vast": {"stall": 4, "count": 1}})", 2},
      // A VAST answer that is not XML, or an error page: nothing can be shown.
      {"", R"({"vast": {"malformed": true}})", 1},
      {"", R"({"vast": {"status": 500, "empty": true}})", 1},
      // An ad list that does not parse leaves nothing to download; the show finds no ad.
      {R"({"adlist": {"malformed": true}})", "", 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.atStart) + c.beforeShow);
    auto o = optionsFor("1002");
    o.faultsAtStart = c.atStart;
    o.faultsBeforeShow = c.beforeShow;
    if (*c.atStart) o.inventoryTimeoutSeconds = 4;  // it will not become ready
    const auto report = runDemo(o);
    EXPECT_EQ(report.inventoryReady, std::string(c.atStart).empty());
    ASSERT_EQ(report.showings.size(), 1u) << report.message;
    ASSERT_TRUE(report.showings[0].result.has_value()) << report.message;
    EXPECT_EQ(*report.showings[0].result, c.result);
  }
}

}  // namespace
}  // namespace tovani::demo
