#include <gtest/gtest.h>

#include <filesystem>

#include "support/ViewerFixture.hpp"
#include "viewer/ProcessState.hpp"
#include "viewer/owned_files.hpp"

namespace tovani::test {
namespace {

namespace fs = std::filesystem;

class AdListSync : public ::testing::Test {
 protected:
  void sync(const std::string& body) {  // the first one starts up
    f.answerAdList(body);
    started ? f.viewer()->getTNJsonList() : f.start();
    started = true;
    f.tp.runUntilIdle();
  }
  Strings ids() const { return f.column("select ads_no || ':' || video_filename from tn_adverts"); }
  Strings device() const { return f.column("select uuid || mcc || mnc from tn_device"); }
  ViewerFixture f;
  bool started = false;
};

TEST_F(AdListSync, OnlyTheFirstIssuedIdIsKeptSentBareInThisRunAndMarkedAfterARestart) {
  sync(R"({"uuid":5})");
  EXPECT_EQ(Strings{std::string("http://") + TOVANI_PRODUCTION_AD_HOST +
                    "/cgi-bin/conad_tovani.fcgi/M/S?xml=json&cat2=&vendor=&osv=10.3&device="
                    "iPhone9%252C3&vdid=&sdk=1.1.2&ac=10"},
            f.adListUrls());
  for (const char* body : {R"({"uuid":""})", R"({"uuid":null})", R"({"uuid":["U"]})", "x"})
    sync(body);
  EXPECT_EQ(Strings{}, device());
  EXPECT_EQ("", f.viewer()->tnUUIDStr);
  sync(adListJson({}, "U-1"));
  EXPECT_EQ(Strings{"U-1(null)(null)"}, device());  // no SIM: absent codes
  TovaniSDK::tovaniShow(f.hostRoot);
  EXPECT_NE(std::string::npos, f.adUrls().at(0).find("/M/SU-1?xml=vast&"));
  sync(adListJson({}, "U-2"));
  // After a restart the last stored id is sent with its mark.
  execOnStore(f.storePath(), "insert into tn_device(uuid, mcc, mnc) values('B','1','2')");
  f.start();
  TovaniSDK::tovaniShow(f.hostRoot);
  EXPECT_EQ((Strings{"U-1(null)(null)", "B12"}), device());
  EXPECT_NE(std::string::npos, f.adListUrls().back().find("/M/S$B?xml=json&"));
  EXPECT_NE(std::string::npos, f.adUrls().back().find("/M/S$B?xml=vast&"));
}

TEST_F(AdListSync, KnownPairsStayAsFirstStoredAndNewVideosOfAnAdvertAreAdded) {
  sync(adListJson({advertJson("7", "http://cdn.example/v/a.mp4", "old")}));
  sync(adListJson({advertJson("7", "http://cdn.example/v/a.mp4", "new"),
                   advertJson("7", "http://cdn.example/v/b.mp4", "b"),
                   advertJson("8", "http://cdn.example/w/a.mp4", "c"),
                   advertJson("7", "http://cdn.example/v/b.mp4", "d")}));
  EXPECT_EQ((Strings{"7:a.mp4:old", "7:b.mp4:b", "8:a.mp4:c"}),
            f.column("select ads_no || ':' || video_filename || ':' || imp_url from tn_adverts"));
}

TEST_F(AdListSync, AdvertsThatCannotBeStoredSafelyAreSkippedAndTheRestKept) {
  const std::string v = "http://cdn.example/v/";
  // clang-format off
  Strings list = {R"({"ads_no":"1"})", R"({"ads_no":"2","sources":[]})", R"("not an advert")",
      "null", R"({"ads_no":"3","sources":{"value":"http://cdn.example/v/x.mp4"}})",
      R"({"ads_no":"4","sources":["http://cdn.example/v/x.mp4"]})",
      R"({"ads_no":"5","sources":[{"value":42}]})",
      R"({"ads_no":"6","sources":[{"imp_url":"http://t.example/imp"}]})",
      advertJson("q", v + "q.mp4", "it's")};  // an unescaped quote
  // clang-format on
  for (const std::string& url :
       Strings{"ftp://cdn.example/v/x.mp4", "file:///etc/x.mp4", "not a url", "http:///x.mp4",
               v + "..", v + "%2E%2E", v + "a%2Fb.mp4", v + "a%252Fb.mp4", v + "a%5Cb.mp4",
               v + "a%00b.mp4", v + "tnad_005.data", v + "TNAD_005.DATA-journal",
               v + "tnad_005.data-wal?x=1", v + ".hidden.mp4", "http://cdn.example/",
               v + "%2e%2e%252f..%252fescape.mp4", v + std::string(300, 'n') + ".mp4",
               v + "it''s.mp4"})  // would become it's and break the statement marking it
    list.push_back(advertJson("x", url));
  list.push_back(advertJson("99", v + "fine%20name.mp4", "http://t.example/?q=%@&r=%%\u00e9"));
  sync(adListJson(list));
  EXPECT_EQ(Strings{"99:fine name.mp4"}, ids());
  EXPECT_EQ(Strings{"http://t.example/?q=%@&r=%%\u00e9"},
            f.column("select imp_url from tn_adverts"));
  EXPECT_EQ(Strings{v + "fine%20name.mp4"}, f.downloadUrls());
  EXPECT_TRUE(fs::is_regular_file(f.storePath()));
  EXPECT_FALSE(fs::exists(fs::path(f.tp.documents()).parent_path() / "escape.mp4"));
}

TEST_F(AdListSync, AFailedListReportsTwoAndOddBodiesNeverCrashAndStillStartTheQueue) {
  f.addRow("1", "waiting.mp4");
  f.tp.http->onPrefix(videoUrl(""), failure());  // so every sync's queue start shows
  f.tp.http->on([](const std::string& url) { return url.find("xml=json") != std::string::npos; },
                failure());
  f.start();
  started = true;
  EXPECT_EQ(std::vector<int32_t>{2}, f.host->results);
  EXPECT_EQ(Strings{}, f.downloadUrls());
  const std::string deep = std::string(100000, '[') + std::string(100000, ']');
  // clang-format off
  const std::string bodies[] = {"{}", "", "null", "[]", "42", R"("text")", "{", R"({"adverts":)",
      R"({"adverts":{}})", R"({"adverts":"x"})", R"({"adverts":[1,"x",null,[],{}]})",
      R"({"adverts":[{"sources":[null]}]})", "\xff\xfe{\"adverts\":[]}",
      R"({"adverts":[{"sources":[{"value":null,"policy":5}],"policy":"p"}]})",
      R"({"adverts":[{"ads_no":"\ud800","sources":[{"value":"http://cdn.example/s.mp4"}]}]})",
      deep, "{\"adverts\":[" + std::string(3 << 20, ' ') + "]}", std::string("{\"a\0\":1}", 9)};
  // clang-format on
  for (size_t i = 0; i < std::size(bodies); ++i) {
    sync(bodies[i]);
    ASSERT_EQ(i + 1, f.downloadUrls().size()) << bodies[i].substr(0, 60);
    ASSERT_EQ(1u, f.host->results.size());
  }
  // Nesting past any sane depth is cut off while parsing; the advert itself is kept.
  sync(R"({"adverts":[{"ads_no":"d","sources":[{"value":"http://cdn.example/d.mp4","policy":)"
       R"({"width":)" +
       deep + "}}]}]}");
  const auto width = f.cell("select sources_policy_width from tn_adverts where ads_no = 'd'");
  EXPECT_TRUE(width.starts_with("[[[") && width.size() < 100) << width.substr(0, 100);
}

TEST_F(AdListSync, ALongListIsStoredInTurnsAndOnlyItsFirstThousandAdvertsAreRead) {
  sync("{}");
  Strings adverts(999, advertJson("x", "http://cdn.example/v/.."));
  for (int i = 0; i < 20; ++i)
    adverts[i * 40] = advertJson(std::to_string(i), "http://cdn.example/v" + std::to_string(i));
  adverts.push_back(advertJson("last", "http://cdn.example/v/last"));
  adverts.push_back(advertJson("ignored", "http://cdn.example/v/ignored"));
  f.answerAdList(adListJson(adverts));
  f.tp.http->onPrefix("http://cdn.example/v", answer("video", 1));  // the first is in flight
  f.viewer()->getTNJsonList();
  size_t rowsSeenByHost = 0;
  f.tp.queue->post([&] { rowsSeenByHost = ids().size(); });  // the host's own work
  f.tp.runUntilIdle();
  EXPECT_GT(rowsSeenByHost, 0u);
  EXPECT_LT(rowsSeenByHost, 21u);
  EXPECT_EQ(21u, ids().size());
  EXPECT_EQ("last:last", ids().back());
  EXPECT_EQ(Strings{"http://cdn.example/v0"}, f.downloadUrls());  // once, after the whole list
}

// Three waiting videos; flags() reads their use flags in row order.
class DownloadQueue : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) f.addRow(name, name);
  }
  std::string flags() const { return f.cell("select group_concat(use_flag, '') from tn_adverts"); }
  std::string file(const std::string& name) const {
    const auto path = f.tp.documentsFile(name);
    return fs::exists(path) ? readFile(path) : "-";
  }
  void serve(const std::string& name, ScriptedHttp::Answer a) {
    f.tp.http->onExact(videoUrl(name), std::move(a));
  }
  ViewerFixture f;
  const Strings abc = {videoUrl("a.mp4"), videoUrl("b.mp4"), videoUrl("c.mp4")};
};

TEST_F(DownloadQueue, WaitingVideosArriveOneAfterAnotherEachAfterThePreviousIsMarked) {
  Strings flagsWhenAsked;
  for (const char* name : {"a.mp4", "b.mp4", "c.mp4"}) serve(name, answer(name, 1.0));
  f.tp.http->on(
      [&](const std::string& url) {
        if (url.starts_with(videoUrl(""))) flagsWhenAsked.push_back(flags());
        return false;
      },
      {});
  f.start();  // its sync starts the queue
  f.tp.advance(0.5);
  EXPECT_EQ(Strings{abc[0]}, f.downloadUrls());
  f.tp.advance(10);
  EXPECT_EQ(abc, f.downloadUrls());
  EXPECT_EQ((Strings{"000", "100", "110"}), flagsWhenAsked);
  EXPECT_EQ(2.0, f.tp.http->requests(Kind::Download).at(2).at);
  EXPECT_EQ(3.0, f.tp.http->requests(Kind::Download).at(0).idleTimeoutSeconds);
  EXPECT_EQ("a.mp4b.mp4c.mp4", file("a.mp4") + file("b.mp4") + file("c.mp4"));
  EXPECT_EQ("111", flags());
  f.viewer()->checkAndDownloadNext();  // nothing left to fetch
  EXPECT_EQ(3u, f.downloadUrls().size());
}

TEST_F(DownloadQueue, ABrokenVideoNeverBlocksTheOthersAndIsTriedOncePerTrigger) {
  writeFile(f.tp.documentsFile("b.mp4"), "old partial");
  ASSERT_TRUE(OwnedFiles(f.tp.documents()).add("b.mp4"));  // the SDK's own, from an earlier run
  serve("a.mp4", answer("A"));
  serve("b.mp4", answer("<html>Not Found</html>", 0, 404));
  serve("c.mp4", answer("C"));
  f.start();
  f.tp.advance(5);
  // An error page or a network failure: no file, the record waits, and the chain goes on
  // with the next video without asking for the broken one again.
  Strings asked = abc;
  for (const auto& next : {failure(0.5), answer("B")}) {
    EXPECT_EQ(asked, f.downloadUrls());
    EXPECT_EQ("101", flags());
    EXPECT_EQ("A-C", file("a.mp4") + file("b.mp4") + file("c.mp4"));
    EXPECT_EQ(0, f.tp.http->liveTemporaryFiles());
    EXPECT_TRUE(mDownloadList->empty());
    serve("b.mp4", next);
    f.viewer()->checkAndDownloadNext();  // the next trigger retries it, once
    f.tp.advance(5);
    asked.push_back(abc[1]);
  }
  EXPECT_EQ(asked, f.downloadUrls());
  EXPECT_EQ("ABC", file("a.mp4") + file("b.mp4") + file("c.mp4"));
  EXPECT_EQ("111", flags());
  EXPECT_TRUE(f.host->results.empty());  // silent
}

TEST(DownloadRows, OneFileOfTwoAdvertsIsFetchedOnceAndUnusableRowsNeverFetchedNorUsedAsPaths) {
  ViewerFixture f;
  const std::string outside = (fs::path(f.tp.documents()).parent_path() / "escape.mp4").string();
  for (const std::string name : {"../escape.mp4", outside.c_str(), "tnad_005.data",
                                 "tnad_005.data-journal", "sub\\x.mp4", "", "."})
    f.addRow("1", name, 0, videoUrl("x.mp4"));
  for (const char* url : {"file:///etc/passwd", "ftp://cdn.example/v/x.mp4", "no url"})
    f.addRow("2", "x.mp4", 0, url);
  // A NULL ads_no moves the row's values up.
  execOnStore(f.storePath(),
              "insert into tn_adverts(sources_value, video_filename, use_flag) "
              "values('" +
                  videoUrl("x.mp4") + "', 'shifted.mp4', 0)");
  f.addRow("3", "good.mp4");
  f.addRow("4", "good.mp4");
  f.tp.http->onPrefix(videoUrl(""), answer("payload"));
  f.start();
  EXPECT_EQ(Strings{videoUrl("good.mp4")}, f.downloadUrls());
  EXPECT_EQ("payload", readFile(f.tp.documentsFile("good.mp4")));
  EXPECT_FALSE(fs::exists(outside) || fs::exists(f.tp.documentsFile("shifted.mp4")));
  EXPECT_EQ("2", f.cell("select count(*) from tn_adverts where use_flag = 1"));
  EXPECT_EQ((Strings{"1", "1"}), f.useFlags("good.mp4"));
}

// Cached videos expire after sixty days, counted in whole seconds of now.
TEST(CacheCleanup, CreatingTheViewerRemovesOnlyPlainMp4FilesOlderThanSixtyDays) {
  ViewerFixture f;  // the store stays as it is: a removed video is fetched when playback misses it
  f.addRow("1", "old.mp4", 1);
  // The SDK's own videos: the one an older install marked as cached, and those it recorded.
  OwnedFiles owned(f.tp.documents());
  for (const char* name : {"long-over.mp4", "young.mp4", "exactly.mp4", "just-over.mp4"})
    ASSERT_TRUE(owned.add(name));
  const double day = 86400, now = f.tp.clock->now();  // half past a whole second
  // clang-format off
  const std::tuple<const char*, double, bool> files[] = {{"old.mp4", 61 * day, false},
      {"young.mp4", 59 * day, true}, {"exactly.mp4", 60 * day + 0.5, true},
      {"just-over.mp4", 60 * day + 0.25, true}, {"long-over.mp4", 60 * day + 1.5, false},
      {"SHOUTING.MP4", 61 * day, true}, {"c.mp4.part", 61 * day, true}, {"notes.txt", 400 * day, true},
      {"folder.mp4", 400 * day, true}, {"nested/deep.mp4", 400 * day, true},
      {"hosts-own.mp4", 400 * day, true}};
  // clang-format on
  fs::create_directories(f.tp.documentsFile("folder.mp4"));
  fs::create_directories(f.tp.documentsFile("nested"));
  for (const auto& [name, age, kept] : files) {
    f.tp.device->creationTimes[fs::path(name).filename()] = now - age;
    if (!fs::exists(f.tp.documentsFile(name))) writeFile(f.tp.documentsFile(name), name);
  }
  TovaniSDK::setPlatform(f.tp.platform);
  TovaniSDK::setDevType(false);  // the first facade call creates the viewer
  for (const auto& [name, age, kept] : files)
    EXPECT_EQ(kept, fs::exists(f.tp.documentsFile(name))) << name;
  EXPECT_EQ(Strings{"1"}, f.useFlags("old.mp4"));
}

}  // namespace
}  // namespace tovani::test
