#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "support/ViewerFixture.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/owned_files.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;

TEST(Startup, SendsAnEmptyCategoryAndUsesTheHostChosenByDevTypeAtStartUpAlsoThroughTheCEntry) {
  ViewerFixture f;
  TovaniSDK::setPlatform(f.tp.platform);
  TovaniSDK::setDevType(true);
  TovaniSDK::init("M", "S", TovaniSDK::CategoryList{"0101", "03"});
  TovaniSDK::setDevType(false);  // too late for this start-up
  TovaniSDK::tovaniShow(f.hostRoot);
  const char* const entries[] = {nullptr, "0101", nullptr};
  tovani_init_with_categories("M2", "S2", entries, 3);
  tovani_init_with_categories(nullptr, nullptr, nullptr, 5);
  f.tp.runUntilIdle();
  const auto url = [](const char* host, const char* codes) {
    return "http://" + std::string(host) + "/cgi-bin/conad_tovani.fcgi/" + codes +
           "?xml=json&cat2=&vendor=";
  };
  const auto urls = f.adListUrls();
  ASSERT_EQ(3u, urls.size());
  EXPECT_TRUE(urls[0].starts_with(url(TOVANI_TEST_AD_HOST, "M/S"))) << urls[0];
  EXPECT_TRUE(urls[1].starts_with(url(TOVANI_PRODUCTION_AD_HOST, "M2/S2"))) << urls[1];
  EXPECT_TRUE(urls[2].starts_with(url(TOVANI_PRODUCTION_AD_HOST, "/"))) << urls[2];
  EXPECT_TRUE(f.adUrls().at(0).starts_with("http://" + std::string(TOVANI_TEST_AD_HOST) + "/"));
}

TEST(Startup, JoinsOnlyStringCategoriesAndTakesTheVendorFromTheLastMatchOfTheCarrierName) {
  using L = TovaniSDK::CategoryList;
  // An absent element stands for one that is not a string, and is skipped.
  const std::pair<std::optional<L>, std::string> joins[] = {
      {std::nullopt, ""},           {L{}, ""},
      {L{"0101", "03"}, "0101|03"}, {L{"", "03"}, "03"},
      {L{"03", ""}, "03|"},         {L{std::nullopt, "02", std::nullopt, "17"}, "02|17"},
      {L{std::nullopt}, ""}};
  for (const auto& [list, joined] : joins) EXPECT_EQ(joined, TovaniSDK::convertCategory(list));

  const std::pair<std::optional<std::string>, std::string> carriers[] = {
      {"SK Telecom", "1"}, {"olleh kt", "2"}, {"LG U+", "4"},
      {"sk and lg", "4"},  {"Vodafone", ""},  {std::nullopt, ""}};
  for (const auto& [name, vendor] : carriers) {
    ViewerFixture f;
    if (name) f.tp.device->carrierInfo = Carrier{name, "450", "05"};
    f.start();
    EXPECT_EQ(vendor, f.viewer()->tnvendor.value_or("?")) << name.value_or("no carrier");
  }
}

// A documents folder given under the home folder is expanded; any other relative one is never
// used, neither by start-up nor by the clean-up of old videos.
TEST(Startup, ADocumentsFolderUnderHomeIsExpandedAndAnyOtherRelativeOneNeverUsed) {
  const char* home = std::getenv("HOME");
  const std::string savedHome = home ? home : "";
  const fs::path savedCwd = fs::current_path();
  for (const bool underHome : {true, false}) {
    ViewerFixture f;
    const fs::path documents = f.tp.documents();
    writeFile(f.tp.documentsFile("old.mp4"), "old");
    ASSERT_TRUE(OwnedFiles(documents.string()).add("old.mp4"));  // a video of an earlier run
    f.tp.device->creationTimes["old.mp4"] = f.tp.clock->now() - 61 * 86400;
    // Both spellings name the real folder: from the home folder, or from the working one.
    setenv("HOME", documents.parent_path().c_str(), 1);
    fs::current_path(documents.parent_path());
    f.tp.device->documents = (underHome ? "~/" : "") + documents.filename().string();
    f.start();
    TovaniSDK::tovaniShow(f.hostRoot);
    f.tp.runUntilIdle();
    fs::current_path(savedCwd);
    setenv("HOME", savedHome.c_str(), 1);
    f.tp.device->documents = documents.string();
    EXPECT_EQ(underHome, !fs::exists(documents / "old.mp4")) << underHome;
    EXPECT_EQ(underHome ? 1u : 0u, f.adListUrls().size());
    EXPECT_EQ(underHome ? 1u : 0u, f.adUrls().size());
  }
}

// Store provisioning: a store as the server ships it, told apart by its device row.
class Provisioning : public ::testing::Test {
 protected:
  Provisioning() {
    const std::string shipped = f.tp.documentsFile("shipped");
    createStoreFile(shipped);
    execOnStore(shipped, "insert into tn_device(uuid, mcc, mnc) values('FROM-SERVER','1','2')");
    storeBytes = readFile(shipped);
    fs::remove(shipped);
  }
  void answerStore(ScriptedHttp::Answer a) { f.tp.http->onExact(storeUrl, std::move(a)); }
  void show() {
    TovaniSDK::tovaniShow(f.hostRoot);
    f.tp.runUntilIdle();
  }
  // Nothing but the store in the documents folder: no temporary or half file left.
  size_t files() const {
    return std::distance(fs::directory_iterator(f.tp.documents()), fs::directory_iterator());
  }
  ViewerFixture f{false};
  std::string storeBytes;
  const std::string storeUrl = std::string(TOVANI_BASE_URL) + "data/tnad_005.data";
};

TEST_F(Provisioning, AMissingStoreIsDownloadedOnceInstalledAndThenSynced) {
  answerStore(answer(storeBytes, 2.0));
  f.start();
  f.start();
  show();  // before the store is there: 1
  show();
  f.viewer()->prepareAD_TNSDK();  // no sync against a store being replaced
  f.tp.advance(1.0);
  EXPECT_EQ(Strings{storeUrl}, f.downloadUrls());
  EXPECT_EQ(Strings{}, f.adListUrls());
  EXPECT_EQ(" | 1 1", f.screen());
  f.tp.advance(1.5);
  EXPECT_EQ(storeBytes, readFile(f.storePath()));
  EXPECT_EQ(1u, files());
  // The sync reads the identity of the installed store.
  EXPECT_NE(std::string::npos, f.adListUrls().at(0).find("/M/S$FROM-SERVER?xml=json"));
  show();
  EXPECT_EQ(1u, f.adUrls().size());
  EXPECT_EQ(1u, f.downloadUrls().size());
}

TEST_F(Provisioning, AStoreThatCannotBeMovedIntoPlaceReportsTwoAndLeavesNoFileBehind) {
  fs::create_directories(f.storePath() + "/taken");  // a folder holds the store's name
  answerStore(answer(storeBytes));
  f.start();
  EXPECT_EQ(" | 2", f.screen());
  EXPECT_EQ(1u, files());
  EXPECT_FALSE(isDatabaseDownloading);
  EXPECT_EQ(Strings{}, f.adListUrls());
}

TEST_F(Provisioning, AFailureOrAnErrorPageInstallsNothingAndTheNextShowTriesAgain) {
  writeFile(f.storePath(), "");  // a zero-byte store is downloaded again instead of synced
  for (const char* side : {"-journal", "-wal", "-shm"}) writeFile(f.storePath() + side, "stale");
  answerStore(failure());
  f.start();
  answerStore(answer("<html>404</html>", 0, 404));
  show();
  EXPECT_EQ(" | 2 1 2", f.screen());
  EXPECT_EQ("", readFile(f.storePath()));
  EXPECT_FALSE(isDatabaseDownloading);
  answerStore(answer(storeBytes));
  show();
  EXPECT_EQ(3u, f.downloadUrls().size());
  // The new store replaces the old one and its leftover journal.
  EXPECT_EQ(storeBytes, readFile(f.storePath()));
  EXPECT_EQ(1u, files());
  EXPECT_EQ(Strings{"FROM-SERVER"}, f.column("select uuid from tn_device"));
  EXPECT_EQ(1u, f.adListUrls().size());
}

class ShowFlow : public ::testing::Test {
 protected:
  // A store holding device id X, a carrier that maps to vendor 2, an empty ad list.
  void startReady(ScriptedHttp::Answer ads) {
    execOnStore(f.storePath(), "insert into tn_device(uuid, mcc, mnc) values('X','450','08')");
    f.tp.device->carrierInfo = Carrier{"olleh kt", "450", "08"};
    f.start();
    answerAds(std::move(ads));
  }
  void answerAds(ScriptedHttp::Answer a) {
    f.tp.http->on([](const std::string& url) { return url.find("xml=vast") != std::string::npos; },
                  std::move(a));
  }
  void show() { TovaniSDK::tovaniShow(f.hostRoot); }
  ViewerFixture f;
};

TEST_F(ShowFlow, TheAdRequestCarriesEveryDeviceValueWithOsAndModelEncodedTwice) {
  f.tp.device->idfa = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  startReady(answer("<VAST/>"));
  show();
  EXPECT_EQ(Strings{std::string("http://") + TOVANI_PRODUCTION_AD_HOST +
                    "/cgi-bin/conad_tovani.fcgi/M/S$X?xml=vast&cat2=&vendor=2&osv=10.3&device="
                    "iPhone9%252C3&vdid=6D92078A-8246-4BA4-AE5B-76104861E7DC&sdk=1.1.2&ac=10"},
            f.adUrls());
  const auto request = f.tp.http->requests(Kind::Data).back();
  EXPECT_EQ("GET", request.method);
  EXPECT_EQ(3.0, request.idleTimeoutSeconds);
  EXPECT_TRUE(request.allowsCellularAccess);
  EXPECT_EQ("viewer |", f.screen());
}

TEST_F(ShowFlow, PreparingWithoutANetworkReportsTwoAndAsksNothing) {
  f.tp.reachability->flags = 0;
  startReady(answer("<VAST/>"));
  EXPECT_EQ(" | 2", f.screen());
  EXPECT_EQ(Strings{}, f.adListUrls());
}

TEST_F(ShowFlow, ShowBeforeStartUpReportsTwoAndBeforeAnyFacadeCallDoesNothing) {
  TovaniSDK::setPlatform(f.tp.platform);
  show();
  EXPECT_TRUE(f.hostRoot->subviews().empty());
  TovaniSDK::delegate(f.host);
  f.viewer()->db_Init_flag = 1;  // even with a usable store
  show();
  f.tp.runUntilIdle();
  EXPECT_EQ(" | 2", f.screen());
  EXPECT_TRUE(f.tp.http->requests().empty());
}

TEST_F(ShowFlow, AShowInFlightIsIgnoredAFailureReportsTwoToAHostThatIsStillThere) {
  startReady(answer("<VAST/>", 1.0));
  show();
  show();
  f.tp.advance(0.5);
  EXPECT_EQ(1u, f.adUrls().size());
  EXPECT_EQ("viewer |", f.screen());
  f.tp.advance(1.0);  // an answer without ads: 1
  answerAds(failure());
  show();
  f.tp.runUntilIdle();
  EXPECT_EQ(" | 1 2", f.screen());
  answerAds(answer("<VAST/>"));
  TovaniSDK::delegate(std::make_shared<RecordingDelegate>());  // gone at once
  show();
  f.tp.runUntilIdle();
  EXPECT_EQ(" | 1 2", f.screen());  // a gone delegate hears nothing; the result stays
  EXPECT_EQ(1, tovaniResult);
}

}  // namespace
}  // namespace tovani::test
