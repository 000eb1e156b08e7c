// The inspector with the real Linux adapters: beacon answers as libcurl saw them, checked
// against what the ad server logged; and the demo's "why" for a capped ad.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tovani/demo/Demo.hpp"

namespace tovani::demo {
namespace {

DemoOptions quiet(const std::string& adId, const std::string& faults) {
  DemoOptions o;
  o.adId = adId;
  o.speed = 6;
  o.faultsBeforeShow = faults;
  o.out = [](const std::string&) {};
  return o;
}

std::vector<InspectorEvent> beaconReports(const ShowingReport& showing) {
  std::vector<InspectorEvent> out;
  for (const auto& e : showing.events)
    if (e.kind == InspectorEventKind::Beacon && e.outcome != "sent") out.push_back(e);
  return out;
}

int trackRequests(const ShowingReport& showing) {
  int n = 0;
  for (const auto& r : showing.requests) n += r.route == "track";
  return n;
}

TEST(InspectorEndToEnd, BeaconStatusesAndLatenciesAreThoseTheServerGave) {
  const auto report = runDemo(quiet("1002", R"({"track": {"status": 500, "count": 2}})"));
  ASSERT_EQ(report.showings.size(), 1u) << report.message;
  const auto& showing = report.showings[0];
  ASSERT_EQ(showing.result, 0) << report.message;
  const auto reports = beaconReports(showing);
  // One report per beacon the server received, none lost, none invented.
  ASSERT_EQ(static_cast<int>(reports.size()), trackRequests(showing));
  int errors = 0, ok = 0;
  for (const auto& r : reports) {
    ASSERT_TRUE(r.status.has_value()) << r.url << " " << r.error.value_or("");
    errors += *r.status == 500;
    ok += *r.status == 200;
    ASSERT_TRUE(r.latencySeconds.has_value());
    EXPECT_GT(*r.latencySeconds, 0);
    EXPECT_LT(*r.latencySeconds, 3) << r.url;
    EXPECT_EQ(r.showing, 1u);
  }
  EXPECT_EQ(errors, 2);
  EXPECT_EQ(ok, static_cast<int>(reports.size()) - 2);
}

TEST(InspectorEndToEnd, ABeaconStalledPastTheIdleTimeOutIsReportedAsATransportError) {
  auto o = quiet("1002", R"({"track": {"stall": 4, "count": 1}})");
  o.beaconIdleTimeoutSeconds = 1.5;
  const auto report = runDemo(o);
  ASSERT_EQ(report.showings.size(), 1u) << report.message;
  const auto reports = beaconReports(report.showings[0]);
  ASSERT_FALSE(reports.empty());
  int failed = 0;
  for (const auto& r : reports) {
    if (!r.error) {
      EXPECT_EQ(r.status, 200) << r.url;
      continue;
    }
    ++failed;
    EXPECT_GE(*r.latencySeconds, 1.4) << *r.error;
    EXPECT_LT(*r.latencySeconds, 4) << *r.error;
  }
  EXPECT_EQ(failed, 1);
  EXPECT_EQ(report.showings[0].result, 0) << "a lost beacon changes nothing for the host";
}

TEST(InspectorEndToEnd, WhyNamesTheRuleAndTheCountOfACappedAd) {
  DemoOptions o;
  o.scenarioFile = std::string(TOVANI_SOURCE_DIR) + "/tools/adserver/scenarios/capped_only.json";
  o.speed = 10;
  o.showings = 2;
  o.why = true;
  o.out = [](const std::string&) {};
  const auto report = runDemo(o);
  ASSERT_EQ(report.showings.size(), 2u) << report.message;
  EXPECT_EQ(report.showings[0].why, "");
  ASSERT_EQ(report.showings[1].result, 1);
  EXPECT_EQ(report.showings[1].why,
            "ad 3001 was capped by p|7|1: 1 showings counted since 1 January.");
}

}  // namespace
}  // namespace tovani::demo
