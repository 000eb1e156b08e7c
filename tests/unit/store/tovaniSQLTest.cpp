#include "store/tovaniSQL.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "unit/store/StoreTestSupport.hpp"

namespace tovani::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Rows = std::vector<std::vector<std::string>>;

TEST_F(StoreTest, ValuesComeBackAsTextWithNullsLeftOut) {
  createStore(storePath());
  rawExec(storePath(),
          "insert into tn_device values(NULL, '440', '10');"
          "insert into tn_device values(NULL, NULL, NULL);"
          "insert into tn_device values('U-1', '441', NULL);");
  auto store = openStore();

  // A NULL moves the later values forward; a row of NULLs only is not returned at all.
  auto rows = store->loadDataFromDB("select uuid, mcc, mnc from tn_device order by rowid");
  EXPECT_EQ(*rows, (Rows{{"440", "10"}, {"U-1", "441"}}));
  EXPECT_THAT(store->arrColumnNames(), ElementsAre("uuid", "mcc", "mnc"));

  // Numbers and blobs arrive as their text.
  rows = store->loadDataFromDB("select 42 as n, 2.5, -7, x'4142', NULL");
  EXPECT_EQ(*rows, (Rows{{"42", "2.5", "-7", "AB"}}));
  EXPECT_THAT(store->arrColumnNames(), ElementsAre("n", "2.5", "-7", "x'4142'", "NULL"));

  rows = store->loadDataFromDB("select NULL, NULL union all select NULL, NULL");
  EXPECT_THAT(*rows, IsEmpty());

  // Without rows there are no names either.
  rows = store->loadDataFromDB("select uuid from tn_device where uuid = 'nobody'");
  EXPECT_THAT(*rows, IsEmpty());
  EXPECT_THAT(store->arrColumnNames(), IsEmpty());
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(StoreTest, NextCallEmptiesTheListHandedOutBefore) {
  createStore(storePath());
  rawExec(storePath(), "insert into tn_device values('U-1','1','2'),('U-2','3','4');");
  auto store = openStore();

  const auto first = store->loadDataFromDB("select * from tn_device");
  ASSERT_EQ(first->size(), 2u);
  const auto second = store->loadDataFromDB("select uuid from tn_device where uuid = 'U-2'");
  EXPECT_THAT(*first, IsEmpty()) << "a caller that kept the list sees it emptied";
  EXPECT_NE(first, second);
  EXPECT_EQ(*second, (Rows{{"U-2"}}));
  EXPECT_EQ(store->arrResults(), second);

  // A change empties it just the same and forgets the names.
  store->executeQuery("update tn_device set mcc = '9'");
  EXPECT_THAT(*second, IsEmpty());
  EXPECT_THAT(*store->arrResults(), IsEmpty());
  EXPECT_THAT(store->arrColumnNames(), IsEmpty());
}

TEST_F(StoreTest, FailuresAreLoggedWithTheSqliteMessageAndLookEmpty) {
  createStore(storePath());
  rawExec(storePath(), "create unique index device_uuid on tn_device(uuid);");
  auto store = openStore();

  store->executeQuery("insert into tn_device(uuid, mcc, mnc) values('U-1','440','10')");
  EXPECT_EQ(store->affectedRows(), 1);
  EXPECT_EQ(store->lastInsertedRowID(), 1);

  EXPECT_THAT(*store->loadDataFromDB("selct * from tn_device"), IsEmpty());
  EXPECT_THAT(log->lines, ElementsAre("near \"selct\": syntax error"));

  // A statement that does not prepare changes no counter.
  store->executeQuery("update tn_missing set a = 1");
  EXPECT_THAT(log->lines, ElementsAre("near \"selct\": syntax error", "no such table: tn_missing"));
  EXPECT_EQ(store->affectedRows(), 1);
  EXPECT_EQ(store->lastInsertedRowID(), 1);

  // A constraint failure happens while stepping: no line, the call returns normally, and the
  // counters are refreshed from the fresh connection, which changed nothing.
  log->lines.clear();
  store->executeQuery("insert into tn_device(uuid, mcc, mnc) values('U-1','441','11')");
  EXPECT_THAT(log->lines, IsEmpty());
  EXPECT_EQ(store->affectedRows(), 0);
  EXPECT_EQ(store->lastInsertedRowID(), 0);
  EXPECT_EQ(rawRows(storePath(), "select * from tn_device"), (Rows{{"U-1", "440", "10"}}));

  // Text that holds no statement at all is not an error worth a line either.
  store->executeQuery("-- nothing");
  store->loadDataFromDB("");
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(StoreTest, CountersFollowTheLastChangeOfEachCall) {
  createStore(storePath());
  auto store = openStore();
  for (const char* file : {"a.mp4", "shared.mp4", "shared.mp4"}) {
    store->executeQuery(std::string("insert into tn_adverts(ads_no, video_filename) values('1','") +
                        file + "')");
  }
  EXPECT_EQ(store->affectedRows(), 1);
  EXPECT_EQ(store->lastInsertedRowID(), 3);

  // Queries leave the counters alone.
  store->loadDataFromDB("select * from tn_adverts");
  EXPECT_EQ(store->lastInsertedRowID(), 3);

  // Each call has its own connection, so an update reports no inserted row.
  store->executeQuery("update tn_adverts set use_flag = 1 where video_filename = 'shared.mp4'");
  EXPECT_EQ(store->affectedRows(), 2);
  EXPECT_EQ(store->lastInsertedRowID(), 0);
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(StoreTest, FirstOpenCreatesAnEmptyStoreFile) {
  auto store = openStore();
  ASSERT_FALSE(std::filesystem::exists(storePath()));
  EXPECT_EQ(store->databasePath(), storePath().string());

  EXPECT_THAT(*store->loadDataFromDB("select * from tn_device"), IsEmpty());
  EXPECT_TRUE(std::filesystem::is_regular_file(storePath()));
  EXPECT_EQ(std::filesystem::file_size(storePath()), 0u);
  EXPECT_THAT(log->lines, ElementsAre("no such table: tn_device"));
}

TEST_F(StoreTest, UnopenableStoreIsSilentAndEmpty) {
  // The documents folder is gone: nothing can be opened, nothing is created, no line.
  tovaniSQL store((folder.path() / "missing").string(), kStoreFilename, std::nullopt, log);
  EXPECT_THAT(*store.loadDataFromDB("select * from tn_device"), IsEmpty());
  store.executeQuery("insert into tn_ads_freq(ads_no) values('1')");
  EXPECT_EQ(store.affectedRows(), 0);
  EXPECT_THAT(log->lines, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "missing"));
}

}  // namespace
}  // namespace tovani::test
