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
using ::testing::IsEmpty;
using ::testing::SizeIs;

class Provisioning : public ::testing::Test {
 protected:
  Provisioning() {
    // The bytes of a real store as the server ships it, with one device row so that the
    // installed file can be told apart from any other.
    const std::string shipped = w.tp.documentsFile("shipped.sqlite");
    createStoreFile(shipped);
    execOnStore(shipped, "insert into tn_device(uuid, mcc, mnc) values('FROM-SERVER','1','2')");
    storeBytes = readFile(shipped);
    fs::remove(shipped);
    w.answerAdList(adListJson({}));
  }

  static std::string storeUrl() { return std::string(TOVANI_BASE_URL) + "data/tnad_005.data"; }
  void answerStore(ScriptedHttp::Answer reply) { w.tp.http->onExact(storeUrl(), reply); }
  // Anything in the documents folder besides the store: temporary or half files.
  std::vector<std::string> otherFiles() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(w.tp.documents())) {
      if (entry.path().filename() != "tnad_005.data") names.push_back(entry.path().filename());
    }
    return names;
  }

  InventoryWorld w;
  std::string storeBytes;
};

TEST_F(Provisioning, AMissingStoreIsDownloadedInstalledAndThenSyncedOnce) {
  answerStore(answer(storeBytes, 1.0));
  w.start();
  TovaniSDK::tovaniShow(w.hostRoot);  // before the store is there: 1

  EXPECT_THAT(w.downloadUrls(), ElementsAre(storeUrl()));
  w.tp.advance(0.5);
  EXPECT_THAT(w.adListUrls(), IsEmpty());  // no sync against a store being replaced

  w.tp.advance(1.0);
  EXPECT_EQ(readFile(w.storePath()), storeBytes);
  EXPECT_THAT(otherFiles(), IsEmpty());
  EXPECT_EQ(w.tp.http->liveTemporaryFiles(), 0);
  ASSERT_THAT(w.adListUrls(), SizeIs(1));
  // The sync reads the identity of the installed store.
  EXPECT_THAT(w.adListUrls()[0], ::testing::HasSubstr("/M/S$FROM-SERVER?xml=json"));
  EXPECT_FALSE(isDatabaseDownloading);
  EXPECT_THAT(w.host->results, ElementsAre(1));

  TovaniSDK::tovaniShow(w.hostRoot);
  EXPECT_THAT(w.adUrls(), SizeIs(1));
  EXPECT_THAT(w.downloadUrls(), SizeIs(1));
}

TEST_F(Provisioning, RepeatedTriggersWhileDownloadingIssueOneRequest) {
  answerStore(answer(storeBytes, 2.0));
  w.start();
  w.start();
  TovaniSDK::tovaniShow(w.hostRoot);
  TovaniSDK::tovaniShow(w.hostRoot);
  w.viewer()->prepareAD_TNSDK();  // no sync while the store is being replaced
  w.tp.advance(1.0);
  EXPECT_THAT(w.downloadUrls(), SizeIs(1));
  EXPECT_THAT(w.adListUrls(), IsEmpty());
  EXPECT_THAT(w.host->results, ElementsAre(1, 1));

  w.tp.advance(5.0);
  EXPECT_THAT(w.downloadUrls(), SizeIs(1));
  EXPECT_THAT(w.adListUrls(), SizeIs(1));
}

TEST_F(Provisioning, AFailedDownloadReportsTwoAndTheNextShowTriesAgain) {
  answerStore(failure(0));
  w.start();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_FALSE(isDatabaseDownloading);
  EXPECT_EQ(w.viewer()->db_Init_flag, 0);
  EXPECT_EQ(readFile(w.storePath()), "");  // only what opening a missing store leaves

  answerStore(answer(storeBytes, 0));
  TovaniSDK::tovaniShow(w.hostRoot);
  w.tp.runUntilIdle();
  EXPECT_THAT(w.host->results, ElementsAre(2, 1));
  EXPECT_THAT(w.downloadUrls(), SizeIs(2));
  EXPECT_EQ(readFile(w.storePath()), storeBytes);
  EXPECT_EQ(w.viewer()->db_Init_flag, 1);
}

TEST_F(Provisioning, AnErrorStatusOrATimeOutInstallsNothing) {
  writeFile(w.storePath(), "");  // the empty store that made start-up download
  answerStore(answer("<html>404</html>", 0, 404));
  w.start();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_EQ(readFile(w.storePath()), "");
  EXPECT_EQ(w.viewer()->db_Init_flag, 0);

  answerStore(answer(storeBytes, 60.0));  // stalls: time-out at 3 s
  w.viewer()->downloadDataBase();
  w.tp.advance(10);
  EXPECT_THAT(w.host->results, ElementsAre(2, 2));
  EXPECT_EQ(readFile(w.storePath()), "");
  EXPECT_THAT(otherFiles(), IsEmpty());
  EXPECT_THAT(w.adListUrls(), IsEmpty());
}

TEST_F(Provisioning, TheNewStoreReplacesTheOldOneAndItsLeftoverJournal) {
  writeFile(w.storePath(), "");
  for (const char* side : {"-journal", "-wal", "-shm"}) {
    writeFile(w.storePath() + side, "stale");
  }
  answerStore(answer(storeBytes, 0));
  w.start();
  w.tp.runUntilIdle();

  EXPECT_EQ(readFile(w.storePath()), storeBytes);
  EXPECT_THAT(otherFiles(), IsEmpty());
  EXPECT_THAT(queryStore(w.storePath(), "select uuid from tn_device"),
              ElementsAre(ElementsAre("FROM-SERVER")));
  EXPECT_THAT(w.host->results, IsEmpty());
}

TEST_F(Provisioning, AStoreThatCannotBeMovedInIsAFailure) {
  fs::create_directory(w.storePath());  // something in the way that rename cannot replace
  writeFile(w.storePath() + "/keep", "host data");
  answerStore(answer(storeBytes, 0));
  w.start();
  w.tp.runUntilIdle();

  EXPECT_THAT(w.host->results, ElementsAre(2));
  EXPECT_EQ(w.viewer()->db_Init_flag, 0);
  EXPECT_FALSE(isDatabaseDownloading);
  EXPECT_EQ(readFile(w.storePath() + "/keep"), "host data");
  EXPECT_THAT(w.adListUrls(), IsEmpty());
}

}  // namespace
}  // namespace tovani::test
