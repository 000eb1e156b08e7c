#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "store/Statements.hpp"
#include "store/tovaniSQL.hpp"
#include "unit/store/StoreTestSupport.hpp"
#include "util/Text.hpp"

// The store file is downloaded, so its views and triggers are the server's code. These tests
// play a hostile server and check that the host's thread comes back in bounded time and
// memory, and that the designed statements still work on a sound store afterwards.
namespace tovani::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Never ends, never yields a row.
constexpr const char* kEndless =
    "with recursive c(x) as (select 1 union all select x + 1 from c) select x from c where x < 0";

class HostileStoreTest : public StoreTest {
 protected:
  // Runs `work` and returns the seconds it took.
  template <typename Work>
  double timed(Work work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  // Interrupted no earlier than the limit, and soon after it even with sanitizers on.
  void expectStoppedAtTheLimit(double seconds) {
    EXPECT_GE(seconds, 0.95 * tovaniSQL::kStatementTimeLimitSeconds);
    EXPECT_LT(seconds, tovaniSQL::kStatementTimeLimitSeconds + 3.0);
  }
};

TEST_F(HostileStoreTest, RunawayStatementsAreInterruptedAtTheTimeLimit) {
  createStore(storePath());
  // tn_adverts is replaced by a view that never finishes, and every impression fires a
  // trigger that never finishes.
  rawExec(storePath(),
          std::string("alter table tn_adverts rename to real_adverts;"
                      "create view tn_adverts as select x as ads_no, '' as sources_value,"
                      " '' as video_filename, 0 as use_flag from (") +
              kEndless + ");" +
              "create trigger hog after insert on tn_ads_freq begin select count(*) from (" +
              kEndless + "); end;");
  auto store = openStore();

  std::shared_ptr<StoreRows> rows;
  expectStoppedAtTheLimit(
      timed([&] { rows = store->loadDataFromDB(formatAt(sql::kSelectWaitingVideos, {})); }));
  EXPECT_THAT(*rows, IsEmpty());
  EXPECT_THAT(log->lines, ElementsAre(tovaniSQL::kStatementInterruptedLog));

  // The interrupted insert is undone as a whole; as with any step error the designed path
  // logs nothing of its own.
  log->lines.clear();
  expectStoppedAtTheLimit(
      timed([&] { store->executeQuery(formatAt(sql::kInsertImpression, {"A1"})); }));
  EXPECT_THAT(log->lines, ElementsAre(tovaniSQL::kStatementInterruptedLog));
  EXPECT_EQ(rawValue(storePath(), "select count(*) from tn_ads_freq"), "0");

  // A query of its own making is bounded just the same.
  log->lines.clear();
  expectStoppedAtTheLimit(timed([&] { rows = store->loadDataFromDB(kEndless); }));
  EXPECT_THAT(log->lines, ElementsAre(tovaniSQL::kStatementInterruptedLog));

  // The limit is per call: the next statement runs in full.
  log->lines.clear();
  store->executeQuery(formatAt(sql::kInsertDevice, {"U-1", "440", "10"}));
  EXPECT_THAT(*store->loadDataFromDB(sql::kSelectDevice), SizeIs(1));
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(HostileStoreTest, HugeResultsStopAtTheSizeLimit) {
  createStore(storePath());
  rawExec(storePath(),
          "drop table tn_adverts;"
          "create view tn_adverts as with recursive c(x) as (select 1 union all select x + 1 "
          "from c) select x as ads_no, hex(zeroblob(2000)) as sources_value, 'v.mp4' as "
          "video_filename, 0 as use_flag from c;");
  auto store = openStore();

  const auto rows = store->loadDataFromDB(sql::kSelectWaitingVideos);
  ASSERT_FALSE(rows->empty());
  std::size_t text = 0;
  for (const auto& row : *rows) {
    ASSERT_THAT(row, SizeIs(4));
    for (const auto& value : row) text += value.size();
  }
  EXPECT_LE(text, tovaniSQL::kResultTextLimitBytes);
  EXPECT_GE(text, tovaniSQL::kResultTextLimitBytes / 2);
  EXPECT_THAT(log->lines, ElementsAre(tovaniSQL::kResultTruncatedLog));
}

TEST_F(HostileStoreTest, StoreCannotReachUnsafeFeatures) {
  createStore(storePath());
  rawExec(storePath(),
          "drop table tn_device;"
          "create virtual table tn_device using fts4(uuid, mcc, mnc);"
          "insert into tn_device values('U-1','440','10');"
          "create view device_view as select * from tn_device;");
  auto store = openStore();

  // Views shipped in the file may use only what SQLite marks harmless; a general virtual
  // table is not.
  EXPECT_THAT(*store->loadDataFromDB("select * from device_view"), IsEmpty());
  EXPECT_THAT(log->lines, ElementsAre("unsafe use of virtual table \"tn_device\""));

  // The engine's own bookkeeping tables cannot be written into an inconsistent state.
  log->lines.clear();
  store->executeQuery("delete from tn_device_content");
  EXPECT_THAT(log->lines, ElementsAre("table tn_device_content may not be modified"));
  EXPECT_EQ(rawValue(storePath(), "select count(*) from tn_device_content"), "1");

  // The table itself stays usable by plain statements.
  log->lines.clear();
  EXPECT_EQ(*store->loadDataFromDB("select * from tn_device"),
            (std::vector<std::vector<std::string>>{{"U-1", "440", "10"}}));
  EXPECT_THAT(log->lines, IsEmpty());
}

}  // namespace
}  // namespace tovani::test
