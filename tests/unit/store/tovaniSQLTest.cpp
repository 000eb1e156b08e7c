#include "store/tovaniSQL.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "store/CheckedStatement.hpp"
#include "store/Statements.hpp"
#include "util/Text.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
constexpr const char* kStoreFilename = "tnad_005.data";

struct RecordingLog : Log {
  void write(const std::string& line) override { lines.push_back(line); }
  std::vector<std::string> lines;
};

// Runs SQL straight through SQLite, beside the layer under test, to prepare a store and to
// see what the layer did to it. NULL reads "NULL".
StoreRows raw(const fs::path& db, const std::string& sql) {
  StoreRows rows;
  sqlite3* connection = nullptr;
  sqlite3_open(db.c_str(), &connection);
  const auto collect = [](void* out, int n, char** values, char**) {
    auto& row = static_cast<StoreRows*>(out)->emplace_back();
    for (int i = 0; i < n; ++i) row.emplace_back(values[i] != nullptr ? values[i] : "NULL");
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), collect, &rows, nullptr), SQLITE_OK)
      << sqlite3_errmsg(connection) << ": " << sql;
  sqlite3_close(connection);
  return rows;
}

// The store lives in a folder of its own, removed with everything in it afterwards.
class StoreTest : public ::testing::Test {
 protected:
  ~StoreTest() override {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  }
  // Writes the store the ad server ships, with its tables empty.
  void createStore(const fs::path& db) {
    std::ostringstream schema;
    schema << std::ifstream(fs::path(TOVANI_SOURCE_DIR) / "schema/tovani_store.sql").rdbuf();
    raw(db, schema.str());
  }
  std::unique_ptr<tovaniSQL> openStore(std::optional<std::string> resources = std::nullopt) {
    return std::make_unique<tovaniSQL>(folder.string(), kStoreFilename, resources, log);
  }

  const fs::path folder = [] {
    std::string pattern = (fs::temp_directory_path() / "tovani-store-XXXXXX").string();
    return fs::path(mkdtemp(pattern.data()) != nullptr ? pattern : "/nonexistent");
  }();
  const fs::path store = folder / kStoreFilename;
  std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
};

// A NULL moves the later values of its row forward; a row of NULLs only is left out, and a
// query without rows has no column names. Callers copy the list at once: the next call
// empties it.
TEST_F(StoreTest, RowsComeAsTextInAListTheNextCallEmpties) {
  createStore(store);
  raw(store, "insert into tn_device values(NULL, '440', '10'), (NULL, NULL, NULL)");
  auto db = openStore();
  const auto rows = db->loadDataFromDB("select *, 2.5, x'4142' from tn_device order by rowid");
  EXPECT_EQ(*rows, (StoreRows{{"440", "10", "2.5", "AB"}, {"2.5", "AB"}}));
  EXPECT_THAT(db->arrColumnNames(), ElementsAre("uuid", "mcc", "mnc", "2.5", "x'4142'"));
  EXPECT_THAT(*db->loadDataFromDB("select * from tn_device where uuid is null and mcc is null"),
              IsEmpty());
  EXPECT_THAT(*db->loadDataFromDB("select * from tn_device where 0"), IsEmpty());
  EXPECT_THAT(db->arrColumnNames(), IsEmpty());
  EXPECT_THAT(*rows, IsEmpty()) << "a caller that kept the list sees it emptied";
  const auto kept = db->loadDataFromDB("select 'x'");
  db->executeQuery("update tn_device set mcc = '9'");
  EXPECT_THAT(*kept, IsEmpty());
}

// Only a statement that does not prepare is logged, with SQLite's own line, and it changes
// no counter. An error while stepping (a constraint, say) is silent, and the counters then
// come from the call's own connection, which changed nothing.
TEST_F(StoreTest, PrepareErrorsAreLoggedAndStepErrorsAreSilent) {
  createStore(store);
  raw(store, "create unique index device_uuid on tn_device(uuid);");
  auto db = openStore();
  const auto counters = [&] { return std::pair(db->affectedRows(), db->lastInsertedRowID()); };
  db->executeQuery(formatAt(sql::kInsertDevice, {"U-1", "440", "10"}));
  db->executeQuery(formatAt(sql::kInsertDevice, {"O'Brien", "440", "10"}));
  EXPECT_EQ(counters(), std::pair(1, int64_t{1}));
  db->executeQuery(formatAt(sql::kInsertDevice, {"U-1", "441", "11"}));
  EXPECT_EQ(counters(), std::pair(0, int64_t{0}));
  EXPECT_THAT(log->lines, ElementsAre("near \"Brien\": syntax error"));
}

// Nothing in the documents yet: the first call leaves an empty file, which has no tables.
// Without a documents folder nothing is created and nothing said.
TEST_F(StoreTest, FirstOpenCreatesAnEmptyStoreFile) {
  auto db = openStore();
  ASSERT_FALSE(fs::exists(store));
  EXPECT_THAT(*db->loadDataFromDB("select * from tn_device"), IsEmpty());
  EXPECT_EQ(fs::file_size(store), 0u);
  EXPECT_THAT(log->lines, ElementsAre("no such table: tn_device"));
  tovaniSQL((folder / "gone").string(), kStoreFilename, {}, log).executeQuery("select 1");
  EXPECT_FALSE(fs::exists(folder / "gone"));
  EXPECT_EQ(log->lines.size(), 1u);
}

// A missing store is copied from the host's resources. One that exists in any form (an
// empty file the download replaces, a dangling link) is never touched. Shipping no store is
// the usual first start and passes quietly; a resource folder without a usable one is
// logged, and no partial copy is left behind.
TEST_F(StoreTest, SeedingCopiesOnlyAMissingStore) {
  const fs::path bundle = folder / "bundle";
  fs::create_directories(bundle / kStoreFilename);
  openStore();
  openStore(folder.string() + "/none");
  openStore(bundle.string());
  EXPECT_EQ(log->lines.size(), 2u);
  EXPECT_EQ(log->lines[0], std::make_error_code(std::errc::no_such_file_or_directory).message());
  EXPECT_FALSE(fs::exists(store));

  fs::remove(bundle / kStoreFilename);
  createStore(bundle / kStoreFilename);
  raw(bundle / kStoreFilename, "insert into tn_device values('BUNDLED','440','10')");
  EXPECT_EQ(*openStore(bundle.string())->loadDataFromDB("select uuid from tn_device"),
            (StoreRows{{"BUNDLED"}}));
  fs::resize_file(store, 0);
  openStore(bundle.string());
  EXPECT_EQ(fs::file_size(store), 0u);
  fs::remove(store);
  fs::create_symlink(bundle / "elsewhere.data", store);
  openStore(bundle.string());
  EXPECT_FALSE(fs::exists(bundle / "elsewhere.data"));
  EXPECT_EQ(log->lines.size(), 2u);
}

std::string advert(const char* ad, const std::string& video) {
  return formatAt(sql::kInsertAdvert,
                  {ad,  "b", "c", "d", "e", "f", "g", "h", "i", "j",  "http://v/" + video, "l", "m",
                   "n", "o", "p", "q", "r", "s", "t", "u", "v", video});
}

// Every statement as the SDK sends it, byte for byte where a text is given, run in turn on
// the shipped schema with the engine's own dates: a query's rows show what the statements
// before it did. One download marks every advert that uses the file; duplicated records
// still give one playable row. A period cap counts while today is in its range (2000 to
// 2999 is). As the texts compare, a rolling cap of one day counts every impression since the
// cut-off's new year and none from the year before.
TEST_F(StoreTest, StatementsAreSentAsWrittenAndActOnTheShippedSchema) {
  createStore(store);
  auto db = openStore();
  const std::string today = raw(store, "select strftime('%Y%m%d','now')")[0][0];
  // clang-format off
  const std::tuple<std::string, const char*, StoreRows> steps[] = {
      {formatAt(sql::kInsertDevice, {"U-1", "440", "10"}),
       "insert into tn_device(uuid, mcc, mnc) values('U-1','440','10')", {}},
      {formatAt(sql::kInsertDevice, {"U-2", "441", "20"}), nullptr, {}},
      {formatAt(sql::kSelectDevice, {}), "select * from tn_device",
       {{"U-1", "440", "10"}, {"U-2", "441", "20"}}},
      {advert("A1", "1.mp4"),
       "insert into tn_adverts(ads_no, slot, url, start, end, policy_campaign, policy_product, "
       "sources_code, sources_start, sources_end, sources_value, sources_policy_duration, "
       "sources_policy_width, sources_policy_height, sources_policy_mimetype, "
       "sources_policy_clicktype, imp_url, click_url, ext_url, skip_url, end_url, mid_url,"
       "video_filename, use_flag) values('A1', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', "
       "'http://v/1.mp4', 'l', 'm', 'n', 'o', 'p', 'q', 'r', 's', 't', 'u', 'v', '1.mp4', 0)", {}},
      {advert("A2", "1.mp4"), nullptr, {}}, {advert("A2", "1.mp4"), nullptr, {}},
      {advert("A3", "3.mp4"), nullptr, {}},
      {formatAt(sql::kSelectAdvert, {"A1", "1.mp4"}),
       "select * from tn_adverts where ads_no ='A1' and video_filename = '1.mp4'",
       {{"A1", "b", "c", "d", "e", "f", "g", "h", "i", "j", "http://v/1.mp4", "l", "m", "n", "o",
         "p", "q", "r", "s", "t", "u", "v", "1.mp4", "0"}}},
      {formatAt(sql::kMarkVideoCached, {"1.mp4"}),
       "update tn_adverts set use_flag = 1 where video_filename = '1.mp4'", {}},
      {formatAt(sql::kSelectWaitingVideos, {}),
       "select ads_no, sources_value, video_filename, use_flag from tn_adverts where use_flag = 0",
       {{"A3", "http://v/3.mp4", "3.mp4", "0"}}},
      {formatAt(sql::kSelectPlayableAdvert, {"A2", "1.mp4"}),
       "select ads_no, sources_value, video_filename, use_flag from tn_adverts where use_flag = 1 "
       "and ads_no ='A2' and video_filename ='1.mp4' group by video_filename limit 1",
       {{"A2", "http://v/1.mp4", "1.mp4", "1"}}},
      {formatAt(sql::kSelectPlayableAdvert, {"A3", "3.mp4"}), nullptr, {}},
      {formatAt(sql::kMarkVideoMissing, {"1.mp4"}),
       "update tn_adverts set use_flag = 0 where video_filename = '1.mp4'", {}},
      {formatAt(sql::kSelectPlayableAdvert, {"A1", "1.mp4"}), nullptr, {}},
      {formatAt(sql::kInsertImpression, {"A1"}),
       "insert into tn_ads_freq(ads_no) values('A1')", {}},
      {formatAt(sql::kInsertImpression, {"A1"}), nullptr, {}},
      {"insert into tn_ads_freq values ('P1', '2000-06-01 10:00:00'),"
       "('R1', strftime('%Y-01-01 08:00:00','now','-1 day')),"
       "('R1', strftime('%Y-12-31 08:00:00','now','-1 day','-1 year'))", nullptr, {}},
      {formatAt(sql::kSelectPeriodCapReached,
                {"A1", "20000101", "29991231", "2", "20000101", "29991231"}),
       "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no ='A1' "
       "and (strftime('%Y%m%d',reg_date) between '20000101' and '29991231')   group by ads_no) "
       "as t1 where  freqcnt >= 2 and (strftime('%Y%m%d',date()) between '20000101' and "
       "'29991231')  ", {{"2", "A1"}}},
      {formatAt(sql::kSelectPeriodCapReached, {"A1", today, today, "2", today, today}), nullptr,
       {{"2", "A1"}}},
      {formatAt(sql::kSelectPeriodCapReached,
                {"P1", "20000101", "20001231", "1", "20000101", "20001231"}), nullptr, {}},
      {formatAt(sql::kSelectRollingCapReached, {"A1", "30", "2"}),
       "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no ='A1' "
       "and (strftime('%Y%m%d',reg_date) >= date('now','-30 day')) group by ads_no) as t1 where "
       "freqcnt >= 2  ", {{"2", "A1"}}},
      {formatAt(sql::kSelectRollingCapReached, {"R1", "1", "1"}), nullptr, {{"1", "R1"}}}};
  // clang-format on
  for (const auto& [sent, text, rows] : steps) {
    EXPECT_EQ(sent, text != nullptr ? text : sent);
    const bool isQuery = sent.starts_with("select");
    EXPECT_EQ(isQuery ? *db->loadDataFromDB(sent) : (db->executeQuery(sent), StoreRows{}), rows)
        << sent;
  }
  EXPECT_THAT(log->lines, IsEmpty());
}

// A value that would leave its quotes, or a number slot holding anything but a number, is
// never sent: the statement acts as a failed one (no rows, nothing written, one log line).
// Every other value gives the very text the unchecked template gives.
TEST_F(StoreTest, CheckedStatementsRefuseValuesThatWouldChangeTheirShapeAndKeepTheRestExact) {
  createStore(store);
  auto db = openStore();
  const std::string injection = "m', 'x.mp4', 1), ('6666', 'y";
  // clang-format off
  const std::tuple<const char*, std::vector<Text>, std::vector<size_t>, bool> cases[] = {
      {sql::kInsertImpression, {"A1"}, {}, true},
      {sql::kInsertImpression, {std::nullopt}, {}, true},
      {sql::kInsertImpression, {"it's"}, {}, false},
      {sql::kInsertDevice, {"U", injection, "1"}, {}, false},
      {sql::kSelectAdvert, {"6'", "a.mp4"}, {}, false},
      {sql::kSelectRollingCapReached, {"A1", "30", "2"}, {1}, true},
      {sql::kSelectRollingCapReached, {"A1", "30", "2 or 1=1"}, {1}, false},
      {sql::kSelectRollingCapReached, {"A1", "1 day') or ('1", "2"}, {1}, false},
      {sql::kSelectRollingCapReached, {"A1", "7 hours", "2"}, {1}, false},
      {sql::kSelectRollingCapReached, {"A1", "30", std::nullopt}, {1}, false},
      {sql::kSelectPeriodCapReached, {"A1", "20000101", "29991231", "-1.5", "20000101", "29991231"},
       {}, true},
      {sql::kSelectPeriodCapReached, {"A1", "2000", "2999", "1)--", "2000", "2999"}, {}, false},
      {"select '%%' || '%@'", {"50%"}, {}, true}};
  // clang-format on
  for (const auto& [statement, values, numeric, issued] : cases) {
    const auto pick = [&](size_t i) { return i < values.size() ? values[i] : std::nullopt; };
    const std::initializer_list<Text> args = {pick(0), pick(1), pick(2), pick(3), pick(4), pick(5)};
    const CheckedStatement checked =
        numeric.empty() ? formatStatement(statement, args) : formatStatement(statement, args, {1});
    EXPECT_EQ(issued, checked.text.has_value()) << statement;
    EXPECT_EQ(issued ? formatAt(statement, args) : "", checked.text.value_or(""));
    const size_t logged = log->lines.size();
    std::string(statement).starts_with("select") ? (void)db->loadDataFromDB(checked)
                                                 : db->executeQuery(checked);
    EXPECT_EQ(issued ? logged : logged + 1, log->lines.size()) << statement;
  }
  EXPECT_EQ(StoreRows({{"2"}}), raw(store, "select count(*) from tn_ads_freq"));
  EXPECT_EQ(StoreRows({{"0"}}), raw(store, "select count(*) from tn_device"));
}

// The store file is downloaded, so its views and triggers are the server's code. A hostile
// one must give the host's thread back at the time limit, each call on its own; what it
// started is undone. The last statement is one of the SDK's own making.
TEST_F(StoreTest, HostileStatementsAreInterruptedAtTheTimeLimit) {
  const std::string endless =
      "with recursive c(x) as (select 1 union all select x + 1 from c) select x from c where x<0";
  createStore(store);
  raw(store, formatAt("alter table tn_adverts rename to old; create view tn_adverts as select x "
                      "as ads_no, '' as sources_value, '' as video_filename, 0 as use_flag from "
                      "(%@); create trigger hog after insert on tn_ads_freq begin select count(*) "
                      "from (%@); end;",
                      {endless, endless}));
  auto db = openStore();
  for (const std::string& statement : {std::string(sql::kSelectWaitingVideos),
                                       formatAt(sql::kInsertImpression, {"A1"}), endless}) {
    log->lines.clear();
    const auto start = std::chrono::steady_clock::now();
    db->loadDataFromDB(statement);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took.count(), 0.95 * tovaniSQL::kStatementTimeLimitSeconds) << statement;
    EXPECT_LT(took.count(), tovaniSQL::kStatementTimeLimitSeconds + 3.0) << statement;
    EXPECT_THAT(log->lines, ElementsAre(tovaniSQL::kStatementInterruptedLog));
  }
  EXPECT_EQ(raw(store, "select count(*) from tn_ads_freq"), (StoreRows{{"0"}}));
}

// A flood of rows stops at the size limit. Views in the file may use only what SQLite marks
// harmless, which a general virtual table is not, and the engine's own bookkeeping tables
// cannot be written behind its back.
TEST_F(StoreTest, HostileStoreIsBoundedInSizeAndReachesNothingUnsafe) {
  createStore(store);
  raw(store,
      "drop table tn_adverts; create view tn_adverts as with recursive c(x) as (select 1 "
      "union all select x + 1 from c) select x as ads_no, hex(zeroblob(2000)) as "
      "sources_value, 'v' as video_filename, 0 as use_flag from c; drop table tn_device; "
      "create virtual table tn_device using fts4(uuid, mcc, mnc); insert into tn_device "
      "values('U-1','440','10'); create view device_view as select * from tn_device;");
  auto db = openStore();
  std::size_t text = 0;
  for (const auto& row : *db->loadDataFromDB(sql::kSelectWaitingVideos)) text += row.at(1).size();
  EXPECT_LE(text, tovaniSQL::kResultTextLimitBytes);
  EXPECT_GE(text, tovaniSQL::kResultTextLimitBytes / 2) << "the rows read so far are kept";
  EXPECT_THAT(*db->loadDataFromDB("select * from device_view"), IsEmpty());
  db->executeQuery("delete from tn_device_content");
  EXPECT_THAT(log->lines, ElementsAre(tovaniSQL::kResultTruncatedLog,
                                      "unsafe use of virtual table \"tn_device\"",
                                      "table tn_device_content may not be modified"));
  EXPECT_EQ(*db->loadDataFromDB(sql::kSelectDevice), (StoreRows{{"U-1", "440", "10"}}));
}

}  // namespace
}  // namespace tovani::test
