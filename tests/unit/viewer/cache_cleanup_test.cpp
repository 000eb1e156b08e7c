#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/InventoryFixture.hpp"
#include "tovani/TovaniSDK.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

constexpr double kDay = 86400;

class CacheCleanup : public ::testing::Test {
 protected:
  double now() const { return w.tp.clock->now(); }
  // A file in the documents folder that the file system says was created `age` seconds ago.
  void put(const std::string& name, double age) {
    writeFile(w.tp.documentsFile(name), name);
    w.tp.device->creationTimes[name] = now() - age;
  }
  std::vector<std::string> remaining() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(w.tp.documents())) {
      names.push_back(entry.path().filename().string());
    }
    return names;
  }

  InventoryWorld w;
};

TEST_F(CacheCleanup, CreatingTheViewerRemovesOnlyMp4FilesOlderThanSixtyDays) {
  // Now is half past a whole second: the age test compares with the whole seconds of now.
  w.tp.clock->setEpoch(1795262400.5);
  for (const char* name : {"old-1.mp4", "old-2.mp4", "old-3.mp4", "zz-old.mp4"}) {
    put(name, 61 * kDay);
  }
  put("young.mp4", 59 * kDay);
  put("exactly-sixty.mp4", 60 * kDay + 0.5);  // expiry == now in whole seconds: kept
  put("just-over.mp4", 60 * kDay + 0.25);     // expired within the current second: kept
  put("long-over.mp4", 60 * kDay + 1.5);
  put("SHOUTING.MP4", 61 * kDay);
  put("clip.mp4.part", 61 * kDay);
  put("tnad_005.data", 400 * kDay);
  put("notes.txt", 400 * kDay);
  fs::create_directory(w.tp.documentsFile("folder.mp4"));
  w.tp.device->creationTimes["folder.mp4"] = now() - 400 * kDay;
  fs::create_directory(w.tp.documentsFile("nested"));
  writeFile(w.tp.documentsFile("nested/deep.mp4"), "x");
  w.tp.device->creationTimes["deep.mp4"] = now() - 400 * kDay;

  TovaniSDK::setPlatform(w.tp.platform);
  TovaniSDK::setDevType(false);  // the first facade call creates the viewer

  EXPECT_THAT(remaining(),
              UnorderedElementsAreArray({"young.mp4", "exactly-sixty.mp4", "just-over.mp4",
                                         "SHOUTING.MP4", "clip.mp4.part", "tnad_005.data",
                                         "notes.txt", "folder.mp4", "nested"}));
  EXPECT_TRUE(fs::exists(w.tp.documentsFile("nested/deep.mp4")));
}

TEST_F(CacheCleanup, ARemovedVideoStaysMarkedUntilPlaybackMissesItThenIsFetchedAgain) {
  w.createStore();
  w.addVideoRow("1", "http://cdn.example/v/a.mp4", "a.mp4", 1);
  w.addVideoRow("2", "http://cdn.example/v/a.mp4", "a.mp4", 1);
  put("a.mp4", 61 * kDay);
  w.answerAdList(adListJson({}));
  w.tp.http->onExact("http://cdn.example/v/a.mp4", answer("fresh copy"));
  w.start();
  w.tp.runUntilIdle();
  EXPECT_FALSE(fs::exists(w.tp.documentsFile("a.mp4")));
  EXPECT_THAT(w.useFlags("a.mp4"), ElementsAre("1", "1"));
  EXPECT_THAT(w.downloadUrls(), IsEmpty());

  w.viewer()->notExsistVideoFile("a.mp4");
  EXPECT_THAT(w.useFlags("a.mp4"), ElementsAre("0", "0"));
  EXPECT_THAT(w.downloadUrls(), ElementsAre("http://cdn.example/v/a.mp4"));
  w.tp.runUntilIdle();
  EXPECT_EQ(readFile(w.tp.documentsFile("a.mp4")), "fresh copy");
  EXPECT_THAT(w.useFlags("a.mp4"), ElementsAre("1", "1"));
}

}  // namespace
}  // namespace tovani::test
