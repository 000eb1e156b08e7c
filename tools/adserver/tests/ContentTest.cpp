// What the SDK downloads and parses: the store file, the ad list, the VAST answer, the
// media behind them and the end-card pages.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "Fixtures.hpp"
#include "TestSupport.hpp"

namespace tovani::adserver::testing {
namespace {

using nlohmann::json;

std::vector<std::string> columns(sqlite3* db, const std::string& table) {
  std::vector<std::string> names;
  sqlite3_stmt* stmt = nullptr;
  sqlite3_prepare_v2(db, ("pragma table_info(" + table + ")").c_str(), -1, &stmt, nullptr);
  while (sqlite3_step(stmt) == SQLITE_ROW) {
    names.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 1)));
  }
  sqlite3_finalize(stmt);
  return names;
}

std::string scalar(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* stmt = nullptr;
  std::string out = "<error>";
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) == SQLITE_OK &&
      sqlite3_step(stmt) == SQLITE_ROW && sqlite3_column_text(stmt, 0) != nullptr) {
    out = reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0));
  }
  sqlite3_finalize(stmt);
  return out;
}

TEST(AdServerContent, StoreFileIsAFreshDatabaseWithTheSdkTables) {
  RunningServer server;
  const auto res = server.get("/ios/tovani/data/tnad_005.data");
  ASSERT_TRUE(res);
  ASSERT_EQ(res->status, 200);
  const auto file = server->stateDir() / "downloaded.data";
  std::ofstream(file, std::ios::binary) << res->body;

  sqlite3* db = nullptr;
  ASSERT_EQ(sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  EXPECT_EQ(scalar(db, "pragma integrity_check"), "ok");
  const auto adverts = columns(db, "tn_adverts");
  EXPECT_EQ(adverts.size(), 24u);
  EXPECT_EQ(adverts.front(), "ads_no");
  EXPECT_EQ(adverts.back(), "use_flag");
  EXPECT_EQ(columns(db, "tn_device").front(), "uuid");  // readers take each row's first value
  EXPECT_EQ(scalar(db, "select count(*) from tn_adverts"), "0");
  // The SDK inserts impressions naming only ads_no; caps count on reg_date's default.
  ASSERT_EQ(
      sqlite3_exec(db, "insert into tn_ads_freq(ads_no) values('1001')", nullptr, nullptr, nullptr),
      SQLITE_OK);
  EXPECT_EQ(scalar(db,
                   "select strftime('%Y%m%d', reg_date) = strftime('%Y%m%d', 'now') from "
                   "tn_ads_freq"),
            "1");
  sqlite3_close(db);
}

TEST(AdServerContent, AdListCarriesEveryStoredKeyWithRealTypes) {
  RunningServer server;
  const auto res = server.get(adRequest("DEMO_SLOT", "json"));
  ASSERT_TRUE(res);
  const json list = json::parse(res->body);
  ASSERT_EQ(list["adverts"].size(), 2u);
  EXPECT_EQ(list["adverts"][0]["ads_no"], 1001);
  EXPECT_EQ(list["adverts"][1]["ads_no"], 1002);
  for (const auto& advert : list["adverts"]) {
    for (const char* key : {"ads_no", "slot", "url", "start", "end"}) {
      EXPECT_TRUE(advert.contains(key)) << key;
    }
    EXPECT_TRUE(advert["policy"].contains("campaign"));
    EXPECT_TRUE(advert["policy"].contains("product"));
    const json& source = advert["sources"].at(0);
    for (const char* key : {"code", "start", "end", "value", "imp_url", "click_url", "ext_url",
                            "skip_url", "end_url", "mid_url"}) {
      EXPECT_TRUE(source[key].is_string()) << key;
    }
    for (const char* key : {"duration", "width", "height"}) {
      EXPECT_TRUE(source["policy"][key].is_number()) << key;
    }
    EXPECT_TRUE(source["policy"]["mimetype"].is_string());
    EXPECT_TRUE(source["policy"]["clicktype"].is_string());
    // The advertised video is there to download, and is as long as the list says.
    const std::string value = source["value"];
    EXPECT_EQ(value.rfind(server->hosts().cdnUrl + "video/", 0), 0u) << value;
    const auto video =
        server.get("/sdk/video/" + lastPathComponent(value), server->hosts().cdnHost);
    ASSERT_TRUE(video);
    EXPECT_EQ(video->status, 200);
    EXPECT_EQ(video->get_header_value("Content-Type"), "video/mp4");
    const auto seconds = mp4DurationSeconds(video->body);
    ASSERT_TRUE(seconds);
    EXPECT_NEAR(*seconds, source["policy"]["duration"].get<double>(), 0.05);
  }
  EXPECT_EQ(list["adverts"][0]["sources"][0]["policy"]["duration"], 30);
  EXPECT_EQ(list["adverts"][1]["sources"][0]["policy"]["duration"], 20);
}

TEST(AdServerContent, VastAnswerIsWellFormedAndMatchesTheAdList) {
  RunningServer server;
  const auto vastRes = server.get(adRequest("DEMO_SLOT$X", "vast"));
  const auto listRes = server.get(adRequest("DEMO_SLOT$X", "json"));
  ASSERT_TRUE(vastRes && listRes);
  const auto vast = parseXml(vastRes->body);
  ASSERT_TRUE(vast) << vastRes->body;
  const json list = json::parse(listRes->body);

  const auto ads = vast->all("Ad");
  ASSERT_EQ(ads.size(), 2u);
  const std::vector<std::string> extensionNames{
      "ClickThrough", "Click",         "ClickType",       "SkipUse",  "EndcardUse",
      "VideoClick",   "ClickProgress", "EndcardProgress", "Complete", "Etc",
      "Impression",   "frequency",     "frequency1"};
  for (std::size_t i = 0; i < ads.size(); ++i) {
    const XmlNode& ad = *ads[i];
    const json& advert = list["adverts"][i];
    EXPECT_EQ(ad.attributes.at("id"), advert["ads_no"].dump());
    // The SDK matches a served ad to its cached file by the media URL's file name.
    const XmlNode* media = ad.first("InLine/Creatives/Creative/Linear/MediaFiles/MediaFile");
    ASSERT_NE(media, nullptr);
    EXPECT_EQ(media->text, advert["sources"][0]["value"]);
    std::vector<std::string> events;
    for (const auto* t :
         ad.first("InLine/Creatives/Creative/Linear/TrackingEvents")->all("Tracking")) {
      events.push_back(t->attributes.at("event"));
      EXPECT_EQ(t->text.rfind("http://" + server->hosts().production + "/track/", 0), 0u);
    }
    EXPECT_EQ(events, (std::vector<std::string>{"start", "firstQuartile", "midpoint",
                                                "thirdQuartile", "complete"}));
    std::vector<std::string> names;
    for (const auto& e : ad.first("InLine/Extensions")->children) names.push_back(e.name);
    EXPECT_EQ(names, extensionNames);
  }
  EXPECT_EQ(ads[0]->first("InLine/Extensions/SkipUse")->text, "true");
  EXPECT_EQ(ads[1]->first("InLine/Extensions/SkipUse")->text, "false");
  EXPECT_NE(ads[0]->first("InLine/Extensions/ClickType")->text,
            ads[1]->first("InLine/Extensions/ClickType")->text);
  // Beacon URLs keep their query; the XML escaping is undone by the parser.
  EXPECT_NE(ads[0]->first("InLine/Extensions/Impression")->text.find("?ad=1001&ev="),
            std::string::npos);
}

TEST(AdServerContent, ButtonImagesAreRealPngsOnTheCdnPaths) {
  RunningServer server;
  const std::string cdnPath = "/sdk/button/";
  std::set<std::string> distinct;
  for (const std::string name : {"0_skip.png", "1_skip.png", "2_skip.png", "3_skip.png",
                                 "4_skip.png", "5_skip.png", "click.png"}) {
    const auto res = server.get(cdnPath + name, server->hosts().cdnHost);
    ASSERT_TRUE(res) << name;
    EXPECT_EQ(res->status, 200) << name;
    EXPECT_EQ(res->body.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8)) << name;
    distinct.insert(res->body);
  }
  EXPECT_EQ(distinct.size(), 7u);  // each countdown step looks different
  const auto missing = server.get(cdnPath + "6_skip.png", server->hosts().cdnHost);
  ASSERT_TRUE(missing);
  EXPECT_EQ(missing->status, 404);
  const auto escape = server.get("/sdk/video/..%2Fmake_fixtures.sh", server->hosts().cdnHost);
  ASSERT_TRUE(escape);
  EXPECT_GE(escape->status, 400);  // never the script next to the fixtures
}

TEST(AdServerContent, EveryEndCardPageCarriesTheBridgeLinks) {
  RunningServer server;
  const std::string production = server->hosts().production;
  for (const std::string page : {"iosTovaniEndCard.php", "type1-1.php", "type2.php", "type3.php"}) {
    const auto res =
        server.post("/endcard/ios/" + page,
                    "appID=555&endCardType=type2-1&bgImgUrl=https%3A%2F%2Fcdn."
                    "example%2Fbg.png%5E555&clickTrackUrl=&appLink=https://x.example/a",
                    "application/x-www-form-urlencoded");
    ASSERT_TRUE(res) << page;
    EXPECT_EQ(res->status, 200) << page;
    for (const std::string& link : std::vector<std::string>{
             "href=\"tovaniksdkcall://reload\"", "href=\"tovaniksdkcall://install\"",
             "href=\"tovaniksdkcall://close\"", "href=\"tel:", "href=\"geo://37.5665,126.9780\"",
             "href=\"https://www.example.com/", "href=\"http://" + production + "/\""}) {
      EXPECT_NE(res->body.find(link), std::string::npos) << page << " lacks " << link;
    }
    EXPECT_NE(res->body.find("<dd>555</dd>"), std::string::npos) << "posted fields shown";
  }
  const auto unknown = server.post("/endcard/ios/type9.php", "", "text/plain");
  ASSERT_TRUE(unknown);
  EXPECT_EQ(unknown->status, 404);
  const auto home = server.get("/");
  ASSERT_TRUE(home);
  EXPECT_NE(home->body.find("tovaniksdkcall://close"), std::string::npos);
}

TEST(AdServerContent, TrackingAnswersEmptyAndRotationChangesTheLeadingAd) {
  RunningServer server(R"({"rotate": true,
    "adverts": [{"ads_no": 1, "sources": [{"video": "video_10s.mp4"}]},
                {"ads_no": 2, "sources": [{"video": "video_20s.mp4"}]}]})");
  const auto beacon = server.get("/track/1/start?ad=1&ev=start");
  ASSERT_TRUE(beacon);
  EXPECT_EQ(beacon->status, 200);
  EXPECT_TRUE(beacon->body.empty());
  std::vector<std::string> leaders;
  for (int i = 0; i < 3; ++i) {
    const auto vast = parseXml(server.get(adRequest("S", "vast"))->body);
    ASSERT_TRUE(vast);
    leaders.push_back(vast->all("Ad").at(0)->attributes.at("id"));
    EXPECT_EQ(vast->all("Ad").size(), 2u);
  }
  EXPECT_EQ(leaders, (std::vector<std::string>{"1", "2", "1"}));
}

}  // namespace
}  // namespace tovani::adserver::testing
