#include "store/Statements.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "unit/store/StoreTestSupport.hpp"
#include "util/Text.hpp"

namespace tovani::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using Rows = std::vector<std::vector<std::string>>;

// Today in UTC as eight digits, the form the cap queries compare.
std::string todayUtc() {
  const std::chrono::year_month_day day{
      std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now())};
  char text[16];
  std::snprintf(text, sizeof text, "%04d%02u%02u", static_cast<int>(day.year()),
                static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
  return text;
}

TEST(StatementTexts, FormatToTheExactTextsSent) {
  EXPECT_EQ(formatAt(sql::kSelectDevice, {}), "select * from tn_device");
  EXPECT_EQ(formatAt(sql::kInsertDevice, {"U", "440", "10"}),
            "insert into tn_device(uuid, mcc, mnc) values('U','440','10')");
  EXPECT_EQ(formatAt(sql::kSelectAdvert, {"A1", "v.mp4"}),
            "select * from tn_adverts where ads_no ='A1' and video_filename = 'v.mp4'");
  EXPECT_EQ(
      formatAt(sql::kInsertAdvert,
               {"c1",  "c2",  "c3",  "c4",  "c5",  "c6",  "c7",  "c8",  "c9",  "c10", "c11", "c12",
                "c13", "c14", "c15", "c16", "c17", "c18", "c19", "c20", "c21", "c22", "c23"}),
      "insert into tn_adverts(ads_no, slot, url, start, end, policy_campaign, policy_product, "
      "sources_code, sources_start, sources_end, sources_value, sources_policy_duration, "
      "sources_policy_width, sources_policy_height, sources_policy_mimetype, "
      "sources_policy_clicktype, imp_url, click_url, ext_url, skip_url, end_url, mid_url,"
      "video_filename, use_flag) values('c1', 'c2', 'c3', 'c4', 'c5', 'c6', 'c7', 'c8', 'c9', "
      "'c10', 'c11', 'c12', 'c13', 'c14', 'c15', 'c16', 'c17', 'c18', 'c19', 'c20', 'c21', "
      "'c22', 'c23', 0)");
  EXPECT_EQ(formatAt(sql::kSelectWaitingVideos, {}),
            "select ads_no, sources_value, video_filename, use_flag from tn_adverts where "
            "use_flag = 0");
  EXPECT_EQ(formatAt(sql::kMarkVideoCached, {"v.mp4"}),
            "update tn_adverts set use_flag = 1 where video_filename = 'v.mp4'");
  EXPECT_EQ(formatAt(sql::kMarkVideoMissing, {"v.mp4"}),
            "update tn_adverts set use_flag = 0 where video_filename = 'v.mp4'");
  EXPECT_EQ(formatAt(sql::kSelectPlayableAdvert, {"A1", "v.mp4"}),
            "select ads_no, sources_value, video_filename, use_flag from tn_adverts where "
            "use_flag = 1 and ads_no ='A1' and video_filename ='v.mp4' group by video_filename "
            "limit 1");
  EXPECT_EQ(formatAt(sql::kSelectPeriodCapReached,
                     {"A1", "20240101", "20241231", "3", "20240101", "20241231"}),
            "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no "
            "='A1' and (strftime('%Y%m%d',reg_date) between '20240101' and '20241231')   group "
            "by ads_no) as t1 where  freqcnt >= 3 and (strftime('%Y%m%d',date()) between "
            "'20240101' and '20241231')  ");
  EXPECT_EQ(formatAt(sql::kSelectRollingCapReached, {"A1", "30", "2"}),
            "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no "
            "='A1' and (strftime('%Y%m%d',reg_date) >= date('now','-30 day')) group by ads_no) "
            "as t1 where freqcnt >= 2  ");
  EXPECT_EQ(formatAt(sql::kInsertImpression, {"A1"}),
            "insert into tn_ads_freq(ads_no) values('A1')");
}

class CatalogueTest : public StoreTest {
 protected:
  void SetUp() override {
    createStore(storePath());
    store = openStore();
  }
  void insertAdvert(const std::string& adsNo, const std::string& videoFile,
                    const std::string& campaign = "camp") {
    store->executeQuery(formatAt(sql::kInsertAdvert, {adsNo,
                                                      "SLOT",
                                                      "https://ad/",
                                                      "20240101",
                                                      "20241231",
                                                      campaign,
                                                      "prod",
                                                      "code",
                                                      "s",
                                                      "e",
                                                      "https://cdn.example/v/" + videoFile + "?k=1",
                                                      "15",
                                                      "1280",
                                                      "720",
                                                      "video/mp4",
                                                      "1",
                                                      "imp",
                                                      "click",
                                                      "ext",
                                                      "skip",
                                                      "end",
                                                      "mid",
                                                      videoFile}));
  }
  std::shared_ptr<StoreRows> query(const char* format, std::initializer_list<Text> args = {}) {
    return store->loadDataFromDB(formatAt(format, args));
  }
  std::unique_ptr<tovaniSQL> store;
};

TEST_F(CatalogueTest, DeviceIdentityIsStoredAndTheLastRowWins) {
  EXPECT_THAT(*query(sql::kSelectDevice), IsEmpty());
  store->executeQuery(formatAt(sql::kInsertDevice, {"U-1", "440", "10"}));
  EXPECT_EQ(*query(sql::kSelectDevice), (Rows{{"U-1", "440", "10"}}));

  store->executeQuery(formatAt(sql::kInsertDevice, {"U-2", "441", "20"}));
  const auto rows = *query(sql::kSelectDevice);
  ASSERT_THAT(rows, SizeIs(2));
  EXPECT_EQ(rows.back().front(), "U-2");
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(CatalogueTest, SyncAddsOneRecordPerAdvertAndVideo) {
  EXPECT_THAT(*query(sql::kSelectAdvert, {"A1", "one.mp4"}), IsEmpty());
  insertAdvert("A1", "one.mp4");
  const auto rows = *query(sql::kSelectAdvert, {"A1", "one.mp4"});
  ASSERT_THAT(rows, SizeIs(1));
  ASSERT_THAT(rows[0], SizeIs(24));
  EXPECT_EQ(rows[0][0], "A1");
  EXPECT_EQ(rows[0][10], "https://cdn.example/v/one.mp4?k=1");
  EXPECT_EQ(rows[0][22], "one.mp4");
  EXPECT_EQ(rows[0][23], "0");

  // A new video for a known advert is a second record.
  insertAdvert("A1", "two.mp4");
  EXPECT_THAT(*query(sql::kSelectAdvert, {"A1", "two.mp4"}), SizeIs(1));
  EXPECT_EQ(rawValue(storePath(), "select count(*) from tn_adverts where ads_no = 'A1'"), "2");

  // An apostrophe breaks the statement; the advert is skipped with SQLite's line only.
  insertAdvert("A2", "three.mp4", "O'Brien");
  EXPECT_THAT(log->lines, ElementsAre("near \"Brien\": syntax error"));
  EXPECT_EQ(rawValue(storePath(), "select count(*) from tn_adverts"), "2");
}

TEST_F(CatalogueTest, VideoStateMovesBetweenWaitingAndPlayable) {
  insertAdvert("A1", "shared.mp4");
  insertAdvert("A2", "shared.mp4");
  insertAdvert("A3", "solo.mp4");
  EXPECT_EQ(*query(sql::kSelectWaitingVideos),
            (Rows{{"A1", "https://cdn.example/v/shared.mp4?k=1", "shared.mp4", "0"},
                  {"A2", "https://cdn.example/v/shared.mp4?k=1", "shared.mp4", "0"},
                  {"A3", "https://cdn.example/v/solo.mp4?k=1", "solo.mp4", "0"}}));
  EXPECT_THAT(*query(sql::kSelectPlayableAdvert, {"A1", "shared.mp4"}), IsEmpty());

  // One download marks every advert that uses the file.
  store->executeQuery(formatAt(sql::kMarkVideoCached, {"shared.mp4"}));
  EXPECT_EQ(rawRows(storePath(), "select ads_no, use_flag from tn_adverts order by rowid"),
            (Rows{{"A1", "1"}, {"A2", "1"}, {"A3", "0"}}));
  EXPECT_THAT(*query(sql::kSelectWaitingVideos), SizeIs(1));
  EXPECT_EQ(*query(sql::kSelectPlayableAdvert, {"A2", "shared.mp4"}),
            (Rows{{"A2", "https://cdn.example/v/shared.mp4?k=1", "shared.mp4", "1"}}));
  EXPECT_THAT(*query(sql::kSelectPlayableAdvert, {"A3", "solo.mp4"}), IsEmpty());
  EXPECT_THAT(*query(sql::kSelectPlayableAdvert, {"A1", "solo.mp4"}), IsEmpty());

  // Duplicated records still give one playable row.
  insertAdvert("A2", "shared.mp4");
  store->executeQuery(formatAt(sql::kMarkVideoCached, {"shared.mp4"}));
  EXPECT_THAT(*query(sql::kSelectPlayableAdvert, {"A2", "shared.mp4"}), SizeIs(1));

  // A missing file sends the video back to the work list.
  store->executeQuery(formatAt(sql::kMarkVideoMissing, {"shared.mp4"}));
  EXPECT_THAT(*query(sql::kSelectPlayableAdvert, {"A2", "shared.mp4"}), IsEmpty());
  EXPECT_THAT(*query(sql::kSelectWaitingVideos), SizeIs(4));
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(CatalogueTest, ImpressionsCountAgainstThePeriodCap) {
  const std::string today = todayUtc();
  store->executeQuery(formatAt(sql::kInsertImpression, {"A1"}));
  store->executeQuery(formatAt(sql::kInsertImpression, {"A1"}));
  store->executeQuery(formatAt(sql::kInsertImpression, {"B2"}));
  // The impression time is the engine's, in a form strftime reads.
  EXPECT_EQ(rawRows(storePath(), "select ads_no, strftime('%Y%m%d', reg_date) from tn_ads_freq"),
            (Rows{{"A1", today}, {"A1", today}, {"B2", today}}));

  const auto capReached = [&](const std::string& ad, const std::string& from, const std::string& to,
                              const std::string& cap) {
    return *query(sql::kSelectPeriodCapReached, {ad, from, to, cap, from, to});
  };
  EXPECT_EQ(capReached("A1", today, today, "2"), (Rows{{"2", "A1"}}));
  EXPECT_THAT(capReached("A1", today, today, "3"), IsEmpty());
  EXPECT_THAT(capReached("B2", today, today, "2"), IsEmpty());

  // Impressions inside a range that has ended do not count once today is past it.
  rawExec(storePath(),
          "insert into tn_ads_freq values('A1', '2000-06-01 10:00:00'),"
          "('A1', '2000-06-02 10:00:00');");
  EXPECT_THAT(capReached("A1", "20000101", "20001231", "2"), IsEmpty());
  EXPECT_EQ(capReached("A1", "20000101", today, "4"), (Rows{{"4", "A1"}}));
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(CatalogueTest, RollingCapCountsTheWholeYearOfTheCutOff) {
  // As the texts compare, one day back counts everything since the cut-off's new year, and
  // nothing from the year before it.
  rawExec(storePath(),
          "insert into tn_ads_freq values('R1', strftime('%Y-01-01 08:00:00','now','-1 day')),"
          "('R1', strftime('%Y-12-31 08:00:00','now','-1 day','-1 year'));");
  store->executeQuery(formatAt(sql::kInsertImpression, {"R1"}));

  EXPECT_EQ(*query(sql::kSelectRollingCapReached, {"R1", "1", "2"}), (Rows{{"2", "R1"}}));
  EXPECT_THAT(*query(sql::kSelectRollingCapReached, {"R1", "1", "3"}), IsEmpty());
  EXPECT_THAT(*query(sql::kSelectRollingCapReached, {"X9", "1", "1"}), IsEmpty());
  EXPECT_THAT(log->lines, IsEmpty());
}

}  // namespace
}  // namespace tovani::test
