#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/InventoryFixture.hpp"
#include "viewer/ProcessState.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

std::string video(const std::string& name) {
  return "http://cdn.example/v/" + name;
}

class DownloadQueue : public ::testing::Test {
 protected:
  DownloadQueue() {
    w.createStore();
    w.answerAdList(adListJson({}));
  }
  // Start-up with the store as prepared; its sync starts the queue.
  void start() {
    w.start();
    w.tp.runUntilIdle();
  }
  void serve(const std::string& name, ScriptedHttp::Answer reply) {
    w.tp.http->onExact(video(name), std::move(reply));
  }
  std::string flag(const std::string& name) const {
    const auto flags = w.useFlags(name);
    return flags.empty() ? "none" : flags.front();
  }
  std::string file(const std::string& name) const {
    const auto path = w.tp.documentsFile(name);
    return fs::exists(path) ? readFile(path) : "<missing>";
  }

  InventoryWorld w;
};

TEST_F(DownloadQueue, WaitingVideosArriveOneAfterAnotherEachAfterThePreviousIsMarked) {
  for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) {
    w.addVideoRow(name, video(name), name);
    serve(name, answer(std::string("video ") + name, 1.0));
  }
  // What the store says at the moment each download is asked for.
  std::vector<std::string> flagsWhenRequested;
  w.tp.http->on(
      [&](const std::string& url) {
        if (url.rfind(video(""), 0) == 0) {
          flagsWhenRequested.push_back(flag("a.mp4") + flag("b.mp4") + flag("c.mp4"));
        }
        return false;
      },
      {});
  start();
  w.tp.advance(0.5);
  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("a.mp4")));
  w.tp.advance(10);

  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("a.mp4"), video("b.mp4"), video("c.mp4")));
  EXPECT_THAT(flagsWhenRequested, ElementsAre("000", "100", "110"));
  const auto requests = w.tp.http->requests(ScriptedHttp::Kind::Download);
  EXPECT_EQ(requests[1].at, 1.0);
  EXPECT_EQ(requests[2].at, 2.0);
  EXPECT_EQ(requests[0].idleTimeoutSeconds, 3.0);
  for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) {
    EXPECT_EQ(file(name), std::string("video ") + name);
    EXPECT_EQ(flag(name), "1");
  }
  EXPECT_EQ(w.tp.http->liveTemporaryFiles(), 0);
  EXPECT_THAT(*mDownloadList, IsEmpty());

  // Nothing left to fetch: a further trigger asks for nothing.
  w.viewer()->checkAndDownloadNext();
  EXPECT_THAT(w.downloadUrls(), SizeIs(3));
}

TEST_F(DownloadQueue, AnErrorStopsTheChainAndTheNextTriggerRetriesTheRecord) {
  for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) w.addVideoRow(name, video(name), name);
  serve("a.mp4", answer("A"));
  serve("b.mp4", failure(0.5));
  serve("c.mp4", answer("C"));
  start();
  w.tp.advance(5);
  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("a.mp4"), video("b.mp4")));
  EXPECT_EQ(flag("b.mp4") + flag("c.mp4"), "00");
  EXPECT_EQ(file("b.mp4"), "<missing>");
  EXPECT_THAT(*mDownloadList, IsEmpty());
  EXPECT_THAT(w.host->results, IsEmpty());  // silent

  serve("b.mp4", answer("B"));
  w.viewer()->checkAndDownloadNext();
  w.tp.runUntilIdle();
  EXPECT_THAT(w.downloadUrls(),
              ElementsAre(video("a.mp4"), video("b.mp4"), video("b.mp4"), video("c.mp4")));
  EXPECT_EQ(file("b.mp4") + file("c.mp4"), "BC");
}

TEST_F(DownloadQueue, ASecondTriggerTakesTheNextRecordNotTheOneInFlight) {
  for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) {
    w.addVideoRow(name, video(name), name);
    serve(name, answer(name, 2.0));
  }
  start();
  w.viewer()->checkAndDownloadNext();
  w.viewer()->checkAndDownloadNext();
  w.viewer()->checkAndDownloadNext();  // all in flight: nothing more
  w.tp.advance(1);
  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("a.mp4"), video("b.mp4"), video("c.mp4")));
  EXPECT_THAT(*mDownloadList, SizeIs(3));

  w.tp.advance(5);
  EXPECT_THAT(w.downloadUrls(), SizeIs(3));
  EXPECT_EQ(flag("a.mp4") + flag("b.mp4") + flag("c.mp4"), "111");
}

TEST_F(DownloadQueue, AnErrorStatusIsAFailedDownloadAndNothingIsMovedIn) {
  w.addVideoRow("1", video("a.mp4"), "a.mp4");
  w.addVideoRow("2", video("b.mp4"), "b.mp4");
  serve("a.mp4", answer("<html>Not Found</html>", 0, 404));
  serve("b.mp4", answer("B"));
  start();

  EXPECT_EQ(file("a.mp4"), "<missing>");
  EXPECT_EQ(flag("a.mp4"), "0");
  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("a.mp4")));  // chain stopped
  EXPECT_EQ(w.tp.http->liveTemporaryFiles(), 0);
}

TEST_F(DownloadQueue, AnOldFileOfTheSameNameIsGoneBeforeTheNewDownloadStarts) {
  writeFile(w.tp.documentsFile("a.mp4"), "old partial");
  w.addVideoRow("1", video("a.mp4"), "a.mp4");
  serve("a.mp4", failure(0));
  start();
  EXPECT_EQ(file("a.mp4"), "<missing>");
  EXPECT_EQ(flag("a.mp4"), "0");

  serve("a.mp4", answer("new"));
  w.viewer()->checkAndDownloadNext();
  w.tp.runUntilIdle();
  EXPECT_EQ(file("a.mp4"), "new");
}

TEST_F(DownloadQueue, OneFileSharedByTwoAdvertsIsFetchedOnceAndMarksBoth) {
  w.addVideoRow("1", video("a.mp4"), "a.mp4");
  w.addVideoRow("2", video("a.mp4"), "a.mp4");
  serve("a.mp4", answer("A"));
  start();
  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("a.mp4")));
  EXPECT_THAT(w.useFlags("a.mp4"), ElementsAre("1", "1"));
}

TEST_F(DownloadQueue, RowsWithUnusableAddressesOrNamesAreNeverFetchedNorUsedAsPaths) {
  const std::string outside = (fs::path(w.tp.documents()).parent_path() / "escape.mp4").string();
  w.addVideoRow("1", video("x.mp4"), "../escape.mp4");
  w.addVideoRow("2", video("x.mp4"), outside);
  w.addVideoRow("3", video("x.mp4"), "tnad_005.data");
  w.addVideoRow("4", video("x.mp4"), "tnad_005.data-journal");
  w.addVideoRow("5", video("x.mp4"), "sub\\x.mp4");
  w.addVideoRow("6", video("x.mp4"), "");
  w.addVideoRow("7", video("x.mp4"), ".");
  w.addVideoRow("8", "file:///etc/passwd", "passwd.mp4");
  w.addVideoRow("9", "ftp://cdn.example/v/x.mp4", "x.mp4");
  w.addVideoRow("10", "no url", "x.mp4");
  execOnStore(w.storePath(),
              "insert into tn_adverts(sources_value, video_filename, use_flag) values('" +
                  video("x.mp4") + "', 'shifted.mp4', 0)");  // NULL ads_no: values move up
  w.addVideoRow("11", video("good.mp4"), "good.mp4");
  w.tp.http->onPrefix(video(""), answer("payload"));
  start();

  EXPECT_THAT(w.downloadUrls(), ElementsAre(video("good.mp4")));
  EXPECT_EQ(file("good.mp4"), "payload");
  EXPECT_FALSE(fs::exists(outside));
  EXPECT_FALSE(fs::exists(w.tp.documentsFile("shifted.mp4")));
  EXPECT_EQ(w.adverts("use_flag").size(), 12u);
  EXPECT_THAT(queryStore(w.storePath(), "select count(*) from tn_adverts where use_flag = 1"),
              ElementsAre(ElementsAre("1")));
}

}  // namespace
}  // namespace tovani::test
