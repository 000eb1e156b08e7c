#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/InventoryFixture.hpp"
#include "tovani/Constants.hpp"
#include "tovani/TovaniSDK.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using Row = std::vector<std::string>;

class AdListSync : public ::testing::Test {
 protected:
  AdListSync() { w.createStore(); }
  // Start-up syncs once; `body` answers it and every later sync.
  void startWith(const std::string& body) {
    w.answerAdList(body);
    w.start();
    w.tp.runUntilIdle();
  }
  void syncAgain(const std::string& body) {
    w.answerAdList(body);
    w.viewer()->getTNJsonList();
    w.tp.runUntilIdle();
  }
  std::vector<Row> pairs() const { return w.adverts("ads_no, video_filename"); }

  InventoryWorld w;
};

TEST_F(AdListSync, FirstSyncOnAFreshStoreAdoptsTheIssuedIdBareForThisRunMarkedAfterRestart) {
  w.tp.device->carrierInfo = Carrier{"olleh kt", "450", "08"};
  startWith(adListJson({}, "U-1"));

  ASSERT_THAT(w.adListUrls(), SizeIs(1));
  EXPECT_EQ(w.adListUrls()[0], std::string("http://") + TOVANI_PRODUCTION_AD_HOST +
                                   "/cgi-bin/conad_tovani.fcgi/M/S?xml=json&cat2=&vendor=2&osv="
                                   "10.3&device=iPhone9%252C3&vdid=&sdk=1.1.2&ac=10");
  EXPECT_THAT(queryStore(w.storePath(), "select uuid, mcc, mnc from tn_device"),
              ElementsAre(ElementsAre("U-1", "450", "08")));

  TovaniSDK::tovaniShow(w.hostRoot);
  ASSERT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_THAT(w.adUrls()[0], HasSubstr("/M/SU-1?xml=vast&"));

  // A later list does not replace the stored identity.
  syncAgain(adListJson({}, "U-2"));
  TovaniSDK::init(kMedia, kSlot);
  w.tp.runUntilIdle();
  TovaniSDK::tovaniShow(w.hostRoot);
  EXPECT_THAT(queryStore(w.storePath(), "select uuid from tn_device"),
              ElementsAre(ElementsAre("U-1")));
  EXPECT_THAT(w.adListUrls().back(), HasSubstr("/M/S$U-1?xml=json&"));
  EXPECT_THAT(w.adUrls().back(), HasSubstr("/M/S$U-1?xml=vast&"));
}

TEST_F(AdListSync, AnIdThatIsNotANonEmptyStringIsNotStored) {
  startWith(R"({"uuid":5})");
  for (const char* body :
       {R"({"uuid":""})", R"({"uuid":null})", R"({"uuid":["U"]})", "{}", "not json"}) {
    syncAgain(body);
  }
  EXPECT_THAT(queryStore(w.storePath(), "select uuid from tn_device"), IsEmpty());
  EXPECT_THAT(w.viewer()->tnUUIDStr, ::testing::Optional(std::string()));
  syncAgain(adListJson({}, "U-3"));  // the first proper id is still taken
  EXPECT_THAT(queryStore(w.storePath(), "select uuid, mcc, mnc from tn_device"),
              ElementsAre(ElementsAre("U-3", "(null)", "(null)")));  // no SIM: absent codes
}

TEST_F(AdListSync, AnAdvertIsStoredWithItsFirstSourceAsThePlatformPrintsEachValue) {
  const std::string advert = R"({
    "ads_no": 7, "slot": "S", "url": "http://adv.example/landing?a=1&b=%@%%", "end": 20241231,
    "policy": {"campaign": true, "product": null},
    "sources": [
      {"code": "C1", "start": 1.5, "value": "http://cdn.example/v/clip.mp4?sig=abc#frag",
       "policy": {"duration": 30.0, "width": 1280, "height": 720.25, "mimetype": "video/mp4",
                  "clicktype": {"k": [1, 2]}},
       "imp_url": "http://t.example/imp", "click_url": "http://t.example/click",
       "ext_url": false, "skip_url": "", "end_url": -12, "mid_url": 1e20},
      {"value": "http://cdn.example/v/second.mp4"}]})";
  startWith(adListJson({advert}));

  const Row expected = {"7",
                        "S",
                        "http://adv.example/landing?a=1&b=%@%%",
                        "(null)",  // advert start absent
                        "20241231",
                        "1",
                        "<null>",
                        "C1",
                        "1.5",
                        "(null)",  // source end absent
                        "http://cdn.example/v/clip.mp4?sig=abc#frag",
                        "30",
                        "1280",
                        "720.25",
                        "video/mp4",
                        R"({"k":[1,2]})",
                        "http://t.example/imp",
                        "http://t.example/click",
                        "0",
                        "",
                        "-12",
                        "1e+20",
                        "clip.mp4",
                        "0"};
  EXPECT_THAT(w.adverts("*"), ElementsAre(ElementsAreArray(expected)));
  // The new record goes straight to the download queue.
  EXPECT_THAT(w.downloadUrls(), ElementsAre("http://cdn.example/v/clip.mp4?sig=abc#frag"));
}

TEST_F(AdListSync, KnownPairsStayAsFirstStoredAndNewVideosOfAnAdvertAreAdded) {
  startWith(adListJson({advertJson("7", "http://cdn.example/v/a.mp4", "http://t.example/old")}));
  syncAgain(adListJson({advertJson("7", "http://cdn.example/v/a.mp4", "http://t.example/new"),
                        advertJson("7", "http://cdn.example/v/b.mp4"),
                        advertJson("8", "http://cdn.example/other/a.mp4"),
                        advertJson("7", "http://cdn.example/v/b.mp4")}));

  EXPECT_THAT(w.adverts("ads_no, video_filename, imp_url"),
              ElementsAre(ElementsAre("7", "a.mp4", "http://t.example/old"),
                          ElementsAre("7", "b.mp4", "http://t.example/imp"),
                          ElementsAre("8", "a.mp4", "http://t.example/imp")));
}

TEST_F(AdListSync, AdvertsThatCannotBeStoredSafelyAreSkippedAndTheRestKept) {
  const std::string base = "http://cdn.example/v/";
  const std::vector<std::string> refused = {
      R"({"ads_no":"1"})",
      R"({"ads_no":"2","sources":[]})",
      R"({"ads_no":"3","sources":{"value":"http://cdn.example/v/x.mp4"}})",
      R"({"ads_no":"4","sources":["http://cdn.example/v/x.mp4"]})",
      R"({"ads_no":"5","sources":[{"value":42}]})",
      R"({"ads_no":"6","sources":[{"imp_url":"http://t.example/imp"}]})",
      R"("not an advert")",
      R"(null)",
      advertJson("10", "ftp://cdn.example/v/x.mp4"),
      advertJson("11", "file:///etc/x.mp4"),
      advertJson("12", "not a url at all"),
      advertJson("13", "http:///no-host.mp4"),
      advertJson("20", base + ".."),
      advertJson("21", base + "%2E%2E"),
      advertJson("22", base + "a%2Fb.mp4"),
      advertJson("23", base + "a%252Fb.mp4"),
      advertJson("24", base + "a%5Cb.mp4"),
      advertJson("25", base + "a%00b.mp4"),
      advertJson("26", base + "tnad_005.data"),
      advertJson("27", base + "TNAD_005.DATA-journal"),
      advertJson("28", base + "tnad_005.data-wal?x=1"),
      advertJson("29", base + ".hidden.mp4"),
      advertJson("30", "http://cdn.example/"),
      advertJson("31", base + "%2e%2e%252f..%252fescape.mp4"),
      advertJson("32", base + std::string(300, 'n') + ".mp4"),
  };
  std::vector<std::string> list = refused;
  list.push_back(advertJson("99", base + "fine%20name.mp4"));
  startWith(adListJson(list));

  EXPECT_THAT(pairs(), ElementsAre(ElementsAre("99", "fine name.mp4")));
  EXPECT_THAT(w.downloadUrls(), ElementsAre(base + "fine%20name.mp4"));
  EXPECT_TRUE(fs::exists(w.storePath()));
  EXPECT_FALSE(fs::exists(fs::path(w.tp.documents()).parent_path() / "escape.mp4"));
}

TEST_F(AdListSync, ValuesAreStoredAsTextWithoutReformattingAndAQuoteSkipsOnlyItsAdvert) {
  startWith(adListJson({advertJson("1", "http://cdn.example/a.mp4", "http://t.example/?q=%@&r=%%"),
                        advertJson("2", "http://cdn.example/b.mp4", "it's"),
                        advertJson("3", "http://cdn.example/c.mp4", "http://t.example/\u00e9")}));
  EXPECT_THAT(w.adverts("ads_no, imp_url"),
              ElementsAre(ElementsAre("1", "http://t.example/?q=%@&r=%%"),
                          ElementsAre("3", "http://t.example/\u00e9")));
}

TEST_F(AdListSync, AFailedListReportsTwoAndLeavesTheQueueIdle) {
  w.addVideoRow("1", "http://cdn.example/waiting.mp4", "waiting.mp4");
  w.tp.http->on(isAdListRequest, failure(0));
  w.start();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_THAT(w.downloadUrls(), IsEmpty());
}

TEST_F(AdListSync, OddBodiesNeverCrashAndStillStartTheQueue) {
  w.addVideoRow("1", "http://cdn.example/waiting.mp4", "waiting.mp4");
  // The waiting video keeps failing, so every sync's queue start shows as one request.
  w.tp.http->onPrefix("http://cdn.example/", failure(0));
  const std::string deepArray = std::string(100000, '[') + std::string(100000, ']');
  const std::string deepValue = R"({"adverts":[{"ads_no":"d","sources":[{"value":)"
                                R"("http://cdn.example/deep.mp4","policy":{"width":)" +
                                deepArray + "}}]}]}";
  const std::string bodies[] = {
      "",
      "null",
      "[]",
      "42",
      R"("text")",
      "{",
      R"({"adverts":)",
      R"({"adverts":{}})",
      R"({"adverts":"x"})",
      R"({"adverts":[1,"x",null,[],{}]})",
      R"({"adverts":[{"sources":[null]}]})",
      R"({"adverts":[{"sources":[{"value":null,"policy":5}],"policy":"p"}]})",
      "\xff\xfe{\"adverts\":[]}",
      R"({"adverts":[{"ads_no":"\ud800","sources":[{"value":"http://cdn.example/s.mp4"}]}]})",
      deepArray,
      "{\"adverts\":[" + std::string(3 * 1024 * 1024, ' ') + "]}",
      std::string("{\"a\0\":1}", 9),
  };
  startWith("{}");
  size_t syncs = 1;
  for (const auto& body : bodies) {
    syncAgain(body);
    ++syncs;
    ASSERT_THAT(w.downloadUrls(), SizeIs(syncs)) << "body: " << body.substr(0, 60);
  }
  syncAgain(deepValue);
  // Nesting past any sane depth is cut off while parsing; the advert itself is kept.
  const auto rows = w.adverts("ads_no, sources_policy_width");
  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_EQ(rows[1][0], "d");
  EXPECT_THAT(rows[1][1], ::testing::StartsWith("[[["));
  EXPECT_LT(rows[1][1].size(), 100u);
  EXPECT_THAT(w.host->results, IsEmpty());
}

TEST_F(AdListSync, ALongListIsStoredInTurnsThatLetTheHostRunInBetween) {
  startWith(adListJson({}));
  std::vector<std::string> adverts;
  for (int i = 0; i < 20; ++i) {
    adverts.push_back(advertJson(std::to_string(i), "http://cdn.example/v" + std::to_string(i)));
  }
  w.answerAdList(adListJson(adverts));
  w.viewer()->getTNJsonList();
  size_t rowsSeenByHost = 0;
  w.tp.queue->post([&] { rowsSeenByHost = pairs().size(); });  // the host's own work
  w.tp.runUntilIdle();

  EXPECT_GT(rowsSeenByHost, 0u);
  EXPECT_LT(rowsSeenByHost, 20u);
  EXPECT_THAT(pairs(), SizeIs(20));
  EXPECT_EQ(pairs().back(), (Row{"19", "v19"}));
  // The queue starts once, after the whole list is in.
  EXPECT_THAT(w.downloadUrls(), ElementsAre("http://cdn.example/v0"));
}

TEST_F(AdListSync, OnlyTheFirstThousandAdvertsOfAListAreRead) {
  std::vector<std::string> adverts(999, advertJson("x", "http://cdn.example/v/.."));
  adverts.push_back(advertJson("last-read", "http://cdn.example/v/a.mp4"));
  adverts.push_back(advertJson("ignored", "http://cdn.example/v/b.mp4"));
  startWith(adListJson(adverts));
  EXPECT_THAT(pairs(), ElementsAre(ElementsAre("last-read", "a.mp4")));
}

}  // namespace
}  // namespace tovani::test
