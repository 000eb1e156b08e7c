// The HTTPS port as the SDK's client sees it, and the scenario files that drive the server.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "Fixtures.hpp"
#include "Scenario.hpp"
#include "TestSupport.hpp"

namespace tovani::adserver::testing {
namespace {

httplib::Result fetchOverTls(AdServer& server, const std::string& name, const std::string& ca,
                             const std::string& path) {
  httplib::SSLClient client(name, server.httpsPort());
  client.set_hostname_addr_map({{name, "127.0.0.1"}});
  if (!ca.empty()) client.set_ca_cert_path(ca.c_str());
  client.enable_server_certificate_verification(true);
  client.set_connection_timeout(std::chrono::seconds(5));
  return client.Get(path);
}

TEST(AdServerTls, GeneratedCaVerifiesTheServedHostNamesOnly) {
  RunningServer server;
  const std::string ca = server->caFile().string();
  ASSERT_TRUE(std::filesystem::exists(ca));
  for (const auto& name : {server->hosts().cdnHost, server->hosts().production}) {
    const auto res = fetchOverTls(*server, name, ca, "/sdk/button/0_skip.png");
    ASSERT_TRUE(res) << name << ": " << httplib::to_string(res.error());
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->body.substr(1, 3), "PNG");
  }
  // Verification is real: a name outside the certificate, or no trust in the CA, fails.
  EXPECT_FALSE(fetchOverTls(*server, "other.example", ca, "/sdk/button/0_skip.png"));
  const auto untrusted = std::filesystem::path(server->stateDir()) / "empty.pem";
  std::ofstream(untrusted) << "";
  EXPECT_FALSE(
      fetchOverTls(*server, server->hosts().cdnHost, untrusted.string(), "/sdk/button/0_skip.png"));
  const auto log = server->requests();
  ASSERT_EQ(log.size(), 2u);
  EXPECT_EQ(log[0].scheme, "https");
  EXPECT_EQ(log[0].route, "image");
}

TEST(AdServerTls, EachStartMakesItsOwnCa) {
  RunningServer a;
  RunningServer b;
  std::stringstream pa, pb;
  pa << std::ifstream(a->caFile()).rdbuf();
  pb << std::ifstream(b->caFile()).rdbuf();
  EXPECT_NE(pa.str(), pb.str());
  EXPECT_FALSE(fetchOverTls(*a, a->hosts().cdnHost, b->caFile().string(), "/sdk/button/click.png"));
}

std::filesystem::path fixtures() {
  return std::filesystem::path(TOVANI_ADSERVER_SCENARIOS_DIR) / "../fixtures";
}

TEST(AdServerScenario, ShippedScenariosLoadAndFixturesHaveTheirLengths) {
  const auto hosts = compiledHostNames();
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(TOVANI_ADSERVER_SCENARIOS_DIR)) {
    std::stringstream text;
    text << std::ifstream(entry.path()).rdbuf();
    EXPECT_NO_THROW(loadScenario(text.str(), hosts, fixtures())) << entry.path();
    ++count;
  }
  EXPECT_GE(count, 4u);
  // The built-in default is the shipped default.json.
  std::stringstream shipped;
  shipped << std::ifstream(std::filesystem::path(TOVANI_ADSERVER_SCENARIOS_DIR) / "default.json")
                 .rdbuf();
  EXPECT_EQ(shipped.str(), defaultScenarioText());

  for (const auto& [name, seconds] :
       {std::pair{"video_30s.mp4", 30.0}, {"video_20s.mp4", 20.0}, {"video_10s.mp4", 10.0}}) {
    const auto bytes = readFixture(fixtures(), name);
    ASSERT_TRUE(bytes) << name;
    EXPECT_LT(bytes->size(), 200'000u) << name;
    const auto length = mp4DurationSeconds(*bytes);
    ASSERT_TRUE(length) << name;
    EXPECT_NEAR(*length, seconds, 0.2) << name;
  }
}

TEST(AdServerScenario, OverridesNullsAndPlaceholdersShapeTheAnswers) {
  const auto hosts = compiledHostNames();
  const Scenario s = loadScenario(R"({
    "adverts": [{"ads_no": "A'1", "url": null,
                 "sources": [{"video": "video_10s.mp4", "imp_url": "{base}/imp",
                              "policy": {"width": 320}}]},
                {"ads_no": 7, "sources": []}],
    "vast": [{"id": "A'1",
              "extensions": {"frequency1": "d | 20240101", "Etc": null, "Custom": 5},
              "tracking": {"complete": null, "start": "{cdn}s"}}]})",
                                  hosts, fixtures());
  const auto& advert = s.adverts.at(0);
  EXPECT_FALSE(advert.contains("url"));  // null leaves a key out of the list
  EXPECT_EQ(advert["sources"][0]["imp_url"], "http://" + hosts.production + "/imp");
  EXPECT_EQ(advert["sources"][0]["policy"]["width"], 320);
  EXPECT_EQ(advert["sources"][0]["policy"]["height"], 90);  // defaults survive a partial policy
  EXPECT_EQ(s.adverts.at(1)["sources"], nlohmann::json::array());

  ASSERT_EQ(s.vast.size(), 1u);
  const VastAd& ad = s.vast[0];
  EXPECT_EQ(ad.mediaUrl, hosts.cdnUrl + "video/video_10s.mp4");  // taken from the advert
  EXPECT_NEAR(ad.duration, 10.0, 0.2);
  std::map<std::string, std::string> ext(ad.extensions.begin(), ad.extensions.end());
  EXPECT_EQ(ext.count("Etc"), 0u);
  EXPECT_EQ(ext.at("frequency1"), "d | 20240101");  // passed on untouched
  EXPECT_EQ(ext.at("Custom"), "5");
  EXPECT_EQ(ad.extensions.back().first, "Custom");
  std::map<std::string, std::string> tracking(ad.tracking.begin(), ad.tracking.end());
  EXPECT_EQ(tracking.count("complete"), 0u);
  EXPECT_EQ(tracking.at("start"), hosts.cdnUrl + "s");

  // The XML stays well-formed whatever the scenario's texts hold.
  RunningServer server(
      R"({"adverts": [{"ads_no": "A'1<&>", "sources": [{"video": "video_10s.mp4"}]}]})");
  const auto vast = parseXml(server.get(adRequest("S", "vast"))->body);
  ASSERT_TRUE(vast);
  EXPECT_EQ(vast->all("Ad").at(0)->attributes.at("id"), "A'1<&>");
}

TEST(AdServerScenario, MistakesAreReportedNotServed) {
  const auto hosts = compiledHostNames();
  for (const char* bad : {
           R"([])",
           R"({"advert": []})",
           R"({"adverts": [{"sources": []}]})",
           R"({"adverts": [{"ads_no": 1}]})",
           R"({"adverts": [{"ads_no": 1, "sources": [{"video": "missing.mp4"}]}]})",
           R"({"adverts": [{"ads_no": 1, "sources": [{"video": "../CMakeLists.txt"}]}]})",
           R"({"vast": [{"id": 9}]})",
           R"({"vast": [{"id": 9, "video": "video_10s.mp4", "extension": {}}]})",
           R"({"faults": {"video": {"stall": 1}}})",
       }) {
    EXPECT_THROW(loadScenario(bad, hosts, fixtures()), std::runtime_error) << bad;
  }
  Options options;
  options.scenarioText = R"({"adverts": 3})";
  AdServer server(options);
  EXPECT_THROW(server.start(), std::runtime_error);
}

}  // namespace
}  // namespace tovani::adserver::testing
