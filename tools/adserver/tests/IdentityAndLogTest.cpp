// Device ids issued through the ad list, and the request log that end-to-end tests read.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>

#include "TestSupport.hpp"

namespace tovani::adserver::testing {
namespace {

using nlohmann::json;

std::string uuidFor(RunningServer& server, const std::string& slotSegment) {
  const auto res = server.get(adRequest(slotSegment, "json"));
  if (!res) return "<no answer>";
  return json::parse(res->body).at("uuid").get<std::string>();
}

TEST(AdServerIdentity, IssuesAnIdOnlyToADeviceWithout) {
  RunningServer server;
  const std::string first = uuidFor(server, "DEMO_SLOT");
  const std::string second = uuidFor(server, "DEMO_SLOT");
  EXPECT_EQ(first.size(), 36u);
  EXPECT_NE(first, second);  // two new devices, two ids
  EXPECT_EQ(first.find_first_of("$'/?&% "), std::string::npos);
  // The same run keeps sending the bare id glued to the slot; after a restart, "$" + id.
  EXPECT_EQ(uuidFor(server, "DEMO_SLOT" + first), first);
  EXPECT_EQ(uuidFor(server, "DEMO_SLOT$" + second), second);
  EXPECT_EQ(uuidFor(server, "DEMO_SLOT$SOMEONE-ELSE"), "SOMEONE-ELSE");
  EXPECT_EQ(server->issuedUuids(), (std::vector<std::string>{first, second}));
}

TEST(AdServerIdentity, ScenarioCanFixTheIssuedId) {
  RunningServer server(R"({"uuid": "FIXED-ID-1", "adverts": []})");
  EXPECT_EQ(uuidFor(server, "SLOT"), "FIXED-ID-1");
  EXPECT_EQ(uuidFor(server, "SLOTFIXED-ID-1"), "FIXED-ID-1");
  const auto res = server.get(adRequest("SLOT", "json"));
  EXPECT_EQ(json::parse(res->body)["adverts"], json::array());
}

TEST(AdServerLog, RecordsRequestsAsSentButNotControlCalls) {
  RunningServer server;
  const std::string production = server->hosts().production;
  ASSERT_TRUE(server.get(adRequest("DEMO_SLOT$ID9", "vast")));
  ASSERT_TRUE(server.post("/endcard/ios/type3.php", "endCardType=type3&bgImgUrl=a%5Eb",
                          "application/x-www-form-urlencoded"));
  ASSERT_TRUE(server.get("/track/1001/start?ad=1001", "elsewhere.example"));
  ASSERT_TRUE(server.get("/no/such/thing"));

  const auto res = server.get("/__log");
  ASSERT_TRUE(res);
  const json log = json::parse(res->body)["requests"];
  ASSERT_EQ(log.size(), 4u);  // the /__log call itself is not there
  EXPECT_EQ(log[0]["route"], "vast");
  EXPECT_EQ(log[0]["method"], "GET");
  EXPECT_EQ(log[0]["host"], production);
  EXPECT_EQ(log[0]["path"], "/cgi-bin/conad_tovani.fcgi/MEDIA1/DEMO_SLOT$ID9");
  // Kept still encoded, so a test can see how the SDK escaped it.
  EXPECT_NE(log[0]["query"].get<std::string>().find("device=iPhone9%252C3"), std::string::npos);
  EXPECT_EQ(log[1]["route"], "endcard");
  EXPECT_EQ(log[1]["method"], "POST");
  EXPECT_EQ(log[1]["body"], "endCardType=type3&bgImgUrl=a%5Eb");
  EXPECT_EQ(log[2]["route"], "track");
  EXPECT_EQ(log[2]["host"], "elsewhere.example");
  EXPECT_EQ(log[2]["query"], "ad=1001");
  EXPECT_EQ(log[3]["route"], "other");
  EXPECT_EQ(log[3]["status"], 404);
  for (std::size_t i = 0; i < log.size(); ++i) {
    EXPECT_EQ(log[i]["scheme"], "http");
    EXPECT_GT(log[i]["epoch"].get<double>(), 1.7e9);
    if (i > 0) {
      EXPECT_GE(log[i]["time"].get<double>(), log[i - 1]["time"].get<double>());
    }
  }

  ASSERT_TRUE(server.post("/__log/clear", "", "text/plain"));
  EXPECT_TRUE(server->requests().empty());
  ASSERT_TRUE(server.get("/track/x"));
  ASSERT_EQ(server->requests().size(), 1u);
  EXPECT_EQ(server->requests()[0].path, "/track/x");
}

TEST(AdServerLog, WaitForRequestReturnsWhenTheRequestArrives) {
  RunningServer server;
  const auto isBeacon = [](const LoggedRequest& r) { return r.path == "/track/9/complete"; };
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(server->waitForRequest(isBeacon, 0.3));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(290));

  auto later = std::async(std::launch::async, [&server] {
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    return server.get("/track/9/complete?x=1");
  });
  const auto seen = server->waitForRequest(isBeacon, 10);
  ASSERT_TRUE(seen);
  EXPECT_EQ(seen->query, "x=1");
  EXPECT_EQ(seen->route, "track");
  ASSERT_TRUE(later.get());
}

}  // namespace
}  // namespace tovani::adserver::testing
