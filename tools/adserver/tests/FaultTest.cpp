// Fault switches: each one must really produce the failure a client would meet.
#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <nlohmann/json.hpp>
#include <thread>

#include "TestSupport.hpp"

namespace tovani::adserver::testing {
namespace {

using nlohmann::json;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

TEST(AdServerFaults, StallHoldsTheConnectionSilentPastTheIdleTimeout) {
  RunningServer server;
  server->setFaults(R"({"vast": {"stall": true, "count": 1}})");  // 5 s
  const auto start = Clock::now();
  // A client with the SDK's 3-second patience gives up without a byte.
  const auto res = server.get(adRequest("S", "vast"), {}, 3.0);
  EXPECT_FALSE(res);
  EXPECT_GE(secondsSince(start), 2.9);
  // While stalled the request is already in the log, with no status yet.
  const auto log = server->requests();
  ASSERT_EQ(log.size(), 1u);
  EXPECT_EQ(log[0].route, "vast");
  EXPECT_EQ(log[0].status, 0);
  // The switch was for one answer only; the next one is immediate and whole.
  const auto again = Clock::now();
  const auto next = server.get(adRequest("S", "vast"));
  ASSERT_TRUE(next);
  EXPECT_TRUE(parseXml(next->body));
  EXPECT_LT(secondsSince(again), 3.0);
}

TEST(AdServerFaults, StopCutsAStallShort) {
  RunningServer server;
  server->setFaults(R"({"video": {"stall": 60}})");
  auto pending = std::async(std::launch::async, [&server] {
    return server.get("/sdk/video/video_10s.mp4", server->hosts().cdnHost, 90);
  });
  while (server->requests().empty()) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const auto start = Clock::now();
  server->stop();
  EXPECT_LT(secondsSince(start), 10.0);
  const auto res = pending.get();
  EXPECT_TRUE(!res || res->status != 200);
}

TEST(AdServerFaults, StatusEmptyAndDelayChangeTheAnswer) {
  RunningServer server;
  server->setFaults(R"({"adlist": {"status": 500}, "store": {"empty": true},
                        "track": {"delay": 0.5}})");
  const auto list = server.get(adRequest("S", "json"));
  ASSERT_TRUE(list);
  EXPECT_EQ(list->status, 500);
  EXPECT_EQ(list->body.find("\"adverts\""), std::string::npos);  // no usable list behind it
  const auto store = server.get("/ios/tovani/data/tnad_005.data");
  ASSERT_TRUE(store);
  EXPECT_EQ(store->status, 200);
  EXPECT_TRUE(store->body.empty());
  const auto start = Clock::now();
  const auto beacon = server.get("/track/1/start");
  ASSERT_TRUE(beacon);
  EXPECT_EQ(beacon->status, 200);
  EXPECT_GE(secondsSince(start), 0.45);
  // Other routes are untouched.
  const auto vast = server.get(adRequest("S", "vast"));
  ASSERT_TRUE(vast);
  EXPECT_EQ(vast->status, 200);
}

TEST(AdServerFaults, TruncatedBodyAnnouncesMoreThanItSends) {
  RunningServer server;
  server->setFaults(R"({"video": {"truncate": 0.25}})");
  httplib::Client client("127.0.0.1", server->httpPort());
  std::size_t announced = 0;
  std::size_t received = 0;
  const auto res = client.Get(
      "/sdk/video/video_30s.mp4", {{"Host", server->hosts().cdnHost}},
      [&](const httplib::Response& r) {
        announced = std::stoul(r.get_header_value("Content-Length"));
        return true;
      },
      [&](const char*, std::size_t length) {
        received += length;
        return true;
      });
  EXPECT_FALSE(res);  // the transfer ends early, as an error
  EXPECT_GT(announced, 50'000u);
  EXPECT_GT(received, 0u);
  EXPECT_LE(received, announced / 4);
}

TEST(AdServerFaults, MalformedAnswersDoNotParse) {
  RunningServer server;
  server->setFaults(R"({"adlist": {"malformed": true}, "vast": {"malformed": true},
                        "store": {"malformed": true}})");
  const auto list = server.get(adRequest("S", "json"));
  ASSERT_TRUE(list);
  EXPECT_FALSE(list->body.empty());
  EXPECT_TRUE(json::parse(list->body, nullptr, false).is_discarded()) << list->body;
  const auto vast = server.get(adRequest("S", "vast"));
  ASSERT_TRUE(vast);
  EXPECT_NE(vast->body.find("<Ad id="), std::string::npos);  // looks like VAST at first
  EXPECT_FALSE(parseXml(vast->body));
  const auto store = server.get("/ios/tovani/data/tnad_005.data");
  ASSERT_TRUE(store);
  EXPECT_GT(store->body.size(), 0u);
  EXPECT_NE(store->body.rfind("SQLite format 3", 0), 0u);
}

TEST(AdServerFaults, SwitchesAreCheckedClearedAndCounted) {
  RunningServer server(R"({"adverts": [], "faults": {"track": {"status": 404, "count": 2}}})");
  const auto beacon = [&server] { return server.get("/track/1")->status; };
  EXPECT_EQ(beacon(), 404);
  EXPECT_EQ(beacon(), 404);
  EXPECT_EQ(beacon(), 200);  // used up

  // A bad request changes nothing, not even the valid part of it.
  const auto bad = server.post("/__faults", R"({"vast": {"status": 500}, "video": {"stal": 5}})",
                               "application/json");
  ASSERT_TRUE(bad);
  EXPECT_EQ(bad->status, 400);
  EXPECT_NE(bad->body.find("stal"), std::string::npos);
  for (const char* wrong : {R"({"video": {"stall": 2}})", R"({"nowhere": {"delay": 1}})",
                            R"({"vast": {"truncate": 1.5}})", R"({"vast": {"status": 42}})"}) {
    EXPECT_THROW(server->setFaults(wrong), std::invalid_argument) << wrong;
  }
  EXPECT_EQ(json::parse(server.get("/__faults")->body), json::object());

  ASSERT_EQ(server
                .post("/__faults", R"({"vast": {"status": 502}, "image": {"empty": true}})",
                      "application/json")
                ->status,
            200);
  EXPECT_EQ(server.get(adRequest("S", "vast"))->status, 502);
  server->setFaults(R"({"vast": null})");
  EXPECT_EQ(server.get(adRequest("S", "vast"))->status, 200);
  EXPECT_TRUE(server.get("/sdk/button/click.png")->body.empty());
  server->setFaults(R"({"reset": true})");
  EXPECT_FALSE(server.get("/sdk/button/click.png")->body.empty());
}

}  // namespace
}  // namespace tovani::adserver::testing
