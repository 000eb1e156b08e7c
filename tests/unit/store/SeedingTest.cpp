#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

#include "store/tovaniSQL.hpp"
#include "unit/store/StoreTestSupport.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Rows = std::vector<std::vector<std::string>>;

class SeedingTest : public StoreTest {
 protected:
  void SetUp() override {
    fs::create_directory(resources());
    fs::create_directory(documents());
  }
  fs::path resources() const { return folder.path() / "bundle"; }
  fs::path documents() const { return folder.path() / "documents"; }
  fs::path documentsStore() const { return documents() / kStoreFilename; }
  std::unique_ptr<tovaniSQL> openSeeded(std::optional<std::string> resourceFolder) {
    return std::make_unique<tovaniSQL>(documents().string(), kStoreFilename,
                                       std::move(resourceFolder), log);
  }
  void makeStoreWithDevice(const fs::path& db, const std::string& uuid) {
    createStore(db);
    rawExec(db, "insert into tn_device values('" + uuid + "','440','10')");
  }
};

TEST_F(SeedingTest, MissingStoreIsCopiedFromTheResources) {
  makeStoreWithDevice(resources() / kStoreFilename, "BUNDLED");
  auto store = openSeeded(resources().string());

  EXPECT_EQ(readFile(documentsStore()), readFile(resources() / kStoreFilename));
  EXPECT_EQ(*store->loadDataFromDB("select * from tn_device"), (Rows{{"BUNDLED", "440", "10"}}));
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(SeedingTest, ExistingStoreIsNeverOverwritten) {
  makeStoreWithDevice(resources() / kStoreFilename, "BUNDLED");
  makeStoreWithDevice(documentsStore(), "LOCAL");
  const std::string before = readFile(documentsStore());

  auto store = openSeeded(resources().string());
  EXPECT_EQ(readFile(documentsStore()), before);

  // Not even an empty store, which the download replaces later, is touched.
  fs::remove(documentsStore());
  { std::ofstream empty(documentsStore()); }
  openSeeded(resources().string());
  EXPECT_EQ(fs::file_size(documentsStore()), 0u);

  // Nor is a dangling link written through to a place outside the documents folder.
  fs::remove(documentsStore());
  fs::create_symlink(folder.path() / "outside.data", documentsStore());
  openSeeded(resources().string());
  EXPECT_FALSE(fs::exists(folder.path() / "outside.data"));
  EXPECT_THAT(log->lines, IsEmpty());
}

TEST_F(SeedingTest, FailedCopyIsLoggedAndTheStoreStaysMissing) {
  // The resources hold no store: the usual first start of a host that ships none.
  auto store = openSeeded(resources().string());
  EXPECT_THAT(log->lines,
              ElementsAre(std::make_error_code(std::errc::no_such_file_or_directory).message()));
  EXPECT_FALSE(fs::exists(documentsStore()));

  // Carrying on: the store works as if it had never been seeded.
  log->lines.clear();
  store->executeQuery("insert into tn_ads_freq(ads_no) values('1')");
  EXPECT_THAT(log->lines, ElementsAre("no such table: tn_ads_freq"));

  // A source that cannot be copied as a file is a failure too, and leaves nothing behind.
  fs::remove(documentsStore());
  log->lines.clear();
  fs::create_directory(resources() / kStoreFilename);
  openSeeded(resources().string());
  EXPECT_EQ(log->lines.size(), 1u);
  EXPECT_FALSE(fs::exists(documentsStore()));
}

TEST_F(SeedingTest, NoResourceFolderSkipsSeedingQuietly) {
  openSeeded(std::nullopt);
  EXPECT_FALSE(fs::exists(documentsStore()));
  EXPECT_THAT(log->lines, IsEmpty());
}

}  // namespace
}  // namespace tovani::test
