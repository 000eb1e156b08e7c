// The development ad server as the SDK's client meets it: the store file, the ad list, the
// VAST answer (read with the SDK's own XML reader), the media behind them, the end-card
// pages, device ids, the request log, the fault switches, HTTPS and the scenario files.
#include <gtest/gtest.h>
#include <httplib.h>
#include <sqlite3.h>

#include <algorithm>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "Fixtures.hpp"
#include "Scenario.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "xml/XMLController.hpp"

namespace tovani::adserver {
namespace {

using nlohmann::json;

const std::filesystem::path kScenarios = TOVANI_ADSERVER_SCENARIOS_DIR;
const std::filesystem::path kFixtures = kScenarios / "../fixtures";
const std::string kStore = "/ios/tovani/data/tnad_005.data";

// A server on ephemeral loopback ports for each test, and a plain-HTTP client that sends
// the Host header the SDK would send.
class AdServerTest : public ::testing::Test {
 protected:
  void SetUp() override { restart(); }
  void restart(const std::string& scenario = {}) {
    Options options;
    options.scenarioText = scenario;
    server_ = std::make_unique<AdServer>(options);
    server_->start();
  }
  const HostNames& hosts() const { return server_->hosts(); }

  httplib::Result get(const std::string& target, const std::string& host = {}, double wait = 10) {
    httplib::Client client("127.0.0.1", server_->httpPort());
    client.set_read_timeout(std::chrono::duration<double>(wait));
    return client.Get(target, {{"Host", host.empty() ? hosts().production : host}});
  }
  httplib::Result post(const std::string& target, const std::string& body,
                       const std::string& type = "application/x-www-form-urlencoded") {
    return httplib::Client("127.0.0.1", server_->httpPort())
        .Post(target, {{"Host", hosts().production}}, body, type);
  }
  // The SDK's ad request; the slot segment carries the device id, `kind` is "json" or "vast".
  static std::string adRequest(const std::string& slot, const std::string& kind = "json") {
    return "/cgi-bin/conad_tovani.fcgi/MEDIA1/" + slot + "?xml=" + kind +
           "&cat2=&vendor=2&osv=10.3&device=iPhone9%252C3&vdid=&sdk=1.1.2&ac=10";
  }

  std::unique_ptr<AdServer> server_;
};

// The first column of the first row of `sql`, as text.
std::string scalar(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr);
  const auto* text = sqlite3_step(stmt) == SQLITE_ROW ? sqlite3_column_text(stmt, 0) : nullptr;
  std::string out = text != nullptr ? reinterpret_cast<const char*>(text) : "<none>";
  sqlite3_finalize(stmt);
  return out;
}

TEST_F(AdServerTest, StoreFileIsAFreshDatabaseWithTheSdkTables) {
  const auto file = server_->stateDir() / "downloaded.data";
  std::ofstream(file, std::ios::binary) << get(kStore)->body;
  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  EXPECT_EQ(scalar(db, "pragma integrity_check"), "ok");
  // Readers take each row's values by position.
  const auto adverts = scalar(db, "select group_concat(name) from pragma_table_info('tn_adverts')");
  EXPECT_TRUE(adverts.starts_with("ads_no,") && adverts.ends_with(",use_flag")) << adverts;
  EXPECT_EQ(std::ranges::count(adverts, ','), 23);
  EXPECT_EQ(scalar(db, "select name from pragma_table_info('tn_device') where cid = 0"), "uuid");
  EXPECT_EQ(scalar(db, "select count(*) from tn_adverts"), "0");
  // The SDK inserts impressions naming only ads_no; caps count on reg_date's default.
  EXPECT_EQ(scalar(db, "insert into tn_ads_freq(ads_no) values(1) returning reg_date >= date()"),
            "1");
  sqlite3_close(db);
}

TEST_F(AdServerTest, AdListAndVastAnswerCarryTheScenarioAndItsVideos) {
  const Scenario scenario = loadScenario(std::string(defaultScenarioText()), hosts(), kFixtures);
  const json list = json::parse(get(adRequest("DEMO_SLOT"))->body);
  XMLController vast;
  ASSERT_TRUE(vast.parseXML(get(adRequest("DEMO_SLOT", "vast"))->body));
  const XmlList ads = XMLController::arrayWithKey("Ad", vast.dicRoot());
  ASSERT_EQ(list["adverts"], scenario.adverts);
  ASSERT_TRUE(ads.size() == 2 && scenario.vast.size() == 2);
  for (size_t i = 0; i < 2; ++i) {
    const json& advert = list["adverts"][i];
    for (const char* key : {"/url", "/start", "/sources/0/value", "/sources/0/imp_url",
                            "/sources/0/click_url", "/sources/0/policy/clicktype"}) {
      EXPECT_TRUE(advert.value(json::json_pointer(key), json()).is_string()) << key;
    }
    EXPECT_TRUE(advert["ads_no"].is_number() &&
                advert["sources"][0]["policy"]["width"].is_number());
    // The advertised video is there to download, and is as long as the list says.
    const std::string value = advert["sources"][0]["value"];
    const auto video = get("/sdk/video/" + value.substr(value.rfind('/') + 1), hosts().cdnHost);
    ASSERT_TRUE(video && video->get_header_value("Content-Type") == "video/mp4");
    EXPECT_NEAR(mp4DurationSeconds(video->body).value_or(0),
                advert["sources"][0]["policy"]["duration"], 0.05);
    // The same ads in the same order: the SDK finds a served ad's file by its media URL.
    const XmlValue linear = valueForKeyPath(ads[i], "InLine.Creatives.Creative.Linear");
    EXPECT_EQ(*ads[i]["id"].string(), advert["ads_no"].dump());
    EXPECT_EQ(XMLController::stringWithKey("MediaFile", linear["MediaFiles"]), value);
    const XmlValue extensions = valueForKeyPath(ads[i], "InLine.Extensions");
    for (const auto& [name, text] : scenario.vast[i].extensions) {
      EXPECT_EQ(XMLController::stringWithKey(name, extensions), text) << name;
    }
    std::vector<std::pair<std::string, std::string>> tracking;
    for (const auto& event : XMLController::arrayWithKey("Tracking", linear["TrackingEvents"])) {
      tracking.emplace_back(*event["event"].string(), *event["text"].string());
    }
    EXPECT_EQ(tracking, scenario.vast[i].tracking);
  }
}

TEST_F(AdServerTest, CdnImagesAreDistinctPngsAndNothingElseIsServed) {
  std::set<std::string> images;
  for (const char* name : {"0_skip", "1_skip", "2_skip", "3_skip", "4_skip", "5_skip", "click"}) {
    const auto res = get(std::string("/sdk/button/") + name + ".png", hosts().cdnHost);
    ASSERT_TRUE(res && res->status == 200) << name;
    EXPECT_TRUE(res->body.starts_with(std::string("\x89PNG\r\n\x1a\n", 8))) << name;
    images.insert(res->body);
  }
  EXPECT_EQ(images.size(), 7u);  // each countdown step looks different
  // Never the script that sits next to the fixtures.
  EXPECT_GE(get("/sdk/video/..%2Fmake_fixtures.sh", hosts().cdnHost)->status, 400);
}

TEST_F(AdServerTest, EveryEndCardPageCarriesTheBridgeLinks) {
  for (const char* page : {"iosTovaniEndCard", "type1-1", "type2", "type3"}) {
    const auto res = post(std::string("/endcard/ios/") + page + ".php", "appID=555");
    ASSERT_TRUE(res && res->status == 200) << page;
    for (const std::string& link : std::vector<std::string>{
             "tovaniksdkcall://reload\"", "tovaniksdkcall://install\"", "tovaniksdkcall://close\"",
             "tel:", "geo://37.5665,126.9780\"", "http://" + hosts().production + "/\""}) {
      EXPECT_NE(res->body.find("href=\"" + link), std::string::npos) << page << " lacks " << link;
    }
  }
}

TEST_F(AdServerTest, IssuesADeviceIdOnlyToADeviceWithout) {
  const auto uuidFor = [&](const std::string& slot) {
    return json::parse(get(adRequest(slot))->body).at("uuid").get<std::string>();
  };
  const std::string first = uuidFor("DEMO_SLOT"), second = uuidFor("DEMO_SLOT");
  EXPECT_TRUE(first != second && first.size() == 36 &&
              first.find_first_of("$'/?&% ") == std::string::npos);
  // The same run sends the bare id glued to the slot; after a restart, "$" + id.
  EXPECT_EQ(uuidFor("DEMO_SLOT" + first), first);
  EXPECT_EQ(uuidFor("DEMO_SLOT$SOMEONE-ELSE"), "SOMEONE-ELSE");
  EXPECT_EQ(server_->issuedUuids(), (std::vector<std::string>{first, second}));
}

TEST_F(AdServerTest, TheLogRecordsRequestsAsSentButNotControlCalls) {
  const std::string vast = adRequest("DEMO_SLOT$ID9", "vast");
  ASSERT_TRUE(get(vast) && post("/endcard/ios/type3.php", "bgImgUrl=a%5Eb"));
  ASSERT_TRUE(get("/track/1001/start?ad=1001", "elsewhere.example") && get("/no/such/thing"));
  const json log = json::parse(get("/__log")->body)["requests"];
  ASSERT_EQ(log.size(), 4u);
  // Paths and queries stay as sent, still encoded, so that a test sees how the SDK escaped them.
  EXPECT_EQ(log[0]["path"].get<std::string>() + "?" + log[0]["query"].get<std::string>(), vast);
  const std::vector<std::vector<std::string>> seen = {
      {"vast", "GET", hosts().production, ""},
      {"endcard", "POST", hosts().production, "bgImgUrl=a%5Eb"},
      {"track", "GET", "elsewhere.example", ""},
      {"other", "GET", hosts().production, ""}};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(seen[i], (std::vector<std::string>{log[i]["route"], log[i]["method"], log[i]["host"],
                                                 log[i]["body"]}));
    EXPECT_TRUE(log[i]["status"] == (i == 3 ? 404 : 200) && log[i]["epoch"] > 1.7e9);
  }
  ASSERT_TRUE(post("/__log/clear", "") && get("/track/x"));
  EXPECT_TRUE(server_->requests().size() == 1 && server_->requests()[0].path == "/track/x");
}

TEST_F(AdServerTest, AStallHoldsOneAnswerPastTheSdksPatienceWhileTheLogShowsItPending) {
  server_->setFaults(R"({"vast": {"stall": true, "count": 1}})");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(get(adRequest("S", "vast"), {}, 3.0));  // a 3-second idle time-out gives up
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2900));
  EXPECT_TRUE(server_->requests().size() == 1 && server_->requests()[0].status == 0);
  EXPECT_TRUE(XMLController().parseXML(get(adRequest("S", "vast"))->body));  // once only
}

TEST_F(AdServerTest, EachFaultBreaksItsRouteTheWayAClientWouldMeetIt) {
  const auto parses = [](const std::string& target, const std::string& body) {
    if (target == kStore) return body.starts_with("SQLite format 3");
    return target.find("=vast") != std::string::npos ? XMLController().parseXML(body)
                                                     : json::accept(body);
  };
  const struct {
    std::string faults, target;
    int status;
    bool empty, parses;
  } cases[] = {
      {R"("adlist": {"status": 500})", adRequest("S"), 500, false, false},
      {R"("adlist": {"status": 500})", adRequest("S", "vast"), 200, false, true},  // not its route
      {R"("store": {"empty": true})", kStore, 200, true, false},
      {R"("adlist": {"malformed": true})", adRequest("S"), 200, false, false},
      {R"("vast": {"malformed": true})", adRequest("S", "vast"), 200, false, false},
      {R"("store": {"malformed": true})", kStore, 200, false, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.faults + " " + c.target);
    server_->setFaults(R"({"reset": true, )" + c.faults + "}");
    const auto res = get(c.target);
    ASSERT_TRUE(res);
    EXPECT_TRUE(res->status == c.status && res->body.empty() == c.empty);
    EXPECT_EQ(parses(c.target, res->body), c.parses);
  }
  // A truncated answer announces its whole length, so the client sees the quarter it gets fail.
  server_->setFaults(R"({"video": {"truncate": 0.25}})");
  size_t received = 0;
  EXPECT_FALSE(httplib::Client("127.0.0.1", server_->httpPort())
                   .Get("/sdk/video/video_30s.mp4", {{"Host", hosts().cdnHost}},
                        [&](const char*, size_t length) { return (received += length) > 0; }));
  EXPECT_TRUE(received > 0 && received <= readFixture(kFixtures, "video_30s.mp4")->size() / 4);
}

TEST_F(AdServerTest, ConnectionFaultsResetRedirectServeAFileOrSendMoreThanAnyCap) {
  server_->setFaults(R"({"vast": {"reset_connection": true, "count": 1}})");
  const auto reset = get(adRequest("S", "vast"));
  EXPECT_FALSE(reset);  // no status line at all
  EXPECT_EQ(get(adRequest("S", "vast"))->status, 200);

  server_->setFaults(R"({"endcard": {"redirect": "ftp://elsewhere.example/x"}})");
  const auto moved = get("/endcard/ios/type1-1.php");
  ASSERT_TRUE(moved);
  EXPECT_EQ(moved->status, 302);
  EXPECT_EQ(moved->get_header_value("Location"), "ftp://elsewhere.example/x");

  const std::string file = ::testing::TempDir() + "/served_store";
  std::ofstream(file, std::ios::binary) << std::string("not\0a store", 11);
  server_->setFaults(R"({"store": {"file": ")" + file + R"("}})");
  EXPECT_EQ(get(kStore)->body, std::string("not\0a store", 11));

  // The announced length is what a client checks first; the bytes come only as it reads.
  server_->setFaults(R"({"video": {"oversize": 40000000}})");
  std::string announced;
  size_t received = 0;
  EXPECT_FALSE(httplib::Client("127.0.0.1", server_->httpPort())
                   .Get(
                       "/sdk/video/video_30s.mp4", {{"Host", hosts().cdnHost}},
                       [&](const httplib::Response& r) {
                         announced = r.get_header_value("Content-Length");
                         return true;
                       },
                       [&](const char*, size_t length) { return (received += length) < 1000000; }));
  EXPECT_EQ(announced, "40000000");
  EXPECT_GE(received, 1000000u);
  EXPECT_THROW(server_->setFaults(R"({"video": {"oversize": -1}})"), std::invalid_argument);
  EXPECT_THROW(server_->setFaults(R"({"video": {"redirect": 3}})"), std::invalid_argument);
}

TEST_F(AdServerTest, SwitchesAreCheckedCountedAndCleared) {
  restart(R"({"adverts": [], "faults": {"track": {"status": 404, "count": 2}}})");
  for (int expected : {404, 404, 200}) EXPECT_EQ(get("/track/1")->status, expected);
  // A bad request changes nothing, not even its valid part.
  const auto bad = post("/__faults", R"({"vast": {"status": 500}, "video": {"stal": 5}})");
  EXPECT_TRUE(bad->status == 400 && bad->body.find("stal") != std::string::npos);
  EXPECT_THROW(server_->setFaults(R"({"video": {"stall": 2}})"), std::invalid_argument);
  EXPECT_EQ(get(adRequest("S", "vast"))->status, 200);
  server_->setFaults(R"({"vast": {"status": 502}, "image": {"empty": true}})");
  EXPECT_EQ(get(adRequest("S", "vast"))->status, 502);
  server_->setFaults(R"({"vast": null})");
  EXPECT_EQ(get(adRequest("S", "vast"))->status, 200);
  EXPECT_TRUE(get("/sdk/button/click.png")->body.empty());
  server_->setFaults(R"({"reset": true})");
  EXPECT_FALSE(get("/sdk/button/click.png")->body.empty());
}

TEST_F(AdServerTest, HttpsVerifiesWithTheGeneratedCaForTheServedNamesOnly) {
  const auto fetch = [&](const std::string& name, const std::filesystem::path& ca) {
    httplib::SSLClient client(name, server_->httpsPort());
    client.set_hostname_addr_map({{name, "127.0.0.1"}});
    client.set_ca_cert_path(ca.c_str());
    return client.Get("/sdk/button/0_skip.png");
  };
  const auto ca = server_->caFile();
  for (const auto& name : {hosts().cdnHost, hosts().production}) {
    const auto res = fetch(name, ca);
    ASSERT_TRUE(res) << name << ": " << httplib::to_string(res.error());
    EXPECT_TRUE(res->status == 200 && res->body.starts_with("\x89PNG"));
  }
  EXPECT_TRUE(server_->requests().size() == 2 && server_->requests()[1].scheme == "https");
  // Verification is real: a name outside the certificate, or another start's CA, fails.
  EXPECT_FALSE(fetch("other.example", ca));
  restart();
  EXPECT_FALSE(fetch(hosts().cdnHost, ca));
}

TEST_F(AdServerTest, ShippedScenariosLoadAndMistakesAreRefused) {
  size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(kScenarios)) {
    std::stringstream text;
    text << std::ifstream(entry.path()).rdbuf();
    EXPECT_NO_THROW(loadScenario(text.str(), hosts(), kFixtures)) << entry.path();
    count += entry.path().filename() == "default.json" && text.str() == defaultScenarioText();
  }
  EXPECT_EQ(count, 1u);  // and the built-in default is the shipped one
  for (const char* bad :
       {R"([])", R"({"advert": []})", R"({"adverts": [{"sources": []}]})",
        R"({"adverts": [{"ads_no": 1}]})",
        R"({"adverts": [{"ads_no": 1, "sources": [{"video": "missing.mp4"}]}]})",
        R"({"adverts": [{"ads_no": 1, "sources": [{"video": "../CMakeLists.txt"}]}]})",
        R"({"vast": [{"id": 9}]})", R"({"faults": {"video": {"stall": 1}}})"}) {
    EXPECT_THROW(loadScenario(bad, hosts(), kFixtures), std::runtime_error) << bad;
  }
  EXPECT_THROW(restart(R"({"adverts": 3})"), std::runtime_error);
}

}  // namespace
}  // namespace tovani::adserver
