#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <thread>

#include "LoopbackServer.hpp"
#include "tovani/linux/CurlHttp.hpp"
#include "tovani/linux/MainLoop.hpp"

namespace tovani::linux {
namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;
using testing::LoopbackServer;

std::string pattern(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 4096) % 26);
  return text;
}

std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::vector<std::string> folderEntries(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) names.push_back(entry.path().string());
  return names;
}

// What one completion saw, captured while it ran.
struct Outcome {
  bool done = false;
  bool onLoopThread = false;
  double after = 0;  // seconds from the start of the test step
  std::string body;  // data requests: the body; downloads: the file content during the call
  long status = 0;
  std::optional<HttpError> error;
  std::optional<std::string> file;
  std::map<std::string, std::string> headers;
};

class CurlHttpTest : public ::testing::Test {
 protected:
  static constexpr size_t kChunk = 1000;

  void SetUp() override {
    char folder[] = "/tmp/tovani-http-XXXXXX";
    ASSERT_NE(mkdtemp(folder), nullptr);
    tempFolder_ = folder;
    auto& routes = server_.routes();
    routes.Get("/hello", [](const auto&, auto& res) {
      res.set_header("X-Test", "yes");
      res.set_content("hello world", "text/plain");
    });
    routes.Post("/echo",
                [](const auto& req, auto& res) { res.set_content(req.body, "text/plain"); });
    routes.Get("/missing", [](const auto&, auto& res) {
      res.status = 404;
      res.set_content("nope", "text/plain");
    });
    routes.Get("/host", [](const auto& req, auto& res) {
      res.set_content(req.get_header_value("Host"), "text/plain");
    });
    // Ten chunks half a second apart: slow, never idle for long.
    routes.Get("/steady", [this](const auto&, auto& res) {
      res.set_chunked_content_provider("application/octet-stream",
                                       [this](size_t offset, httplib::DataSink& sink) {
                                         if (offset >= 10 * kChunk) {
                                           sink.done();
                                           return true;
                                         }
                                         if (offset > 0 && !server_.sleepFor(0.5)) return false;
                                         sink.write(std::string(kChunk, 's').data(), kChunk);
                                         return true;
                                       });
    });
    // One chunk, then silence for longer than the idle time-out.
    routes.Get("/stall", [this](const auto&, auto& res) {
      res.set_chunked_content_provider("application/octet-stream",
                                       [this](size_t offset, httplib::DataSink& sink) {
                                         if (offset > 0 && !server_.sleepFor(6.0)) return false;
                                         sink.write(std::string(kChunk, 'x').data(), kChunk);
                                         if (offset > 0) sink.done();
                                         return true;
                                       });
    });
    routes.Get("/silent", [this](const auto&, auto& res) {
      server_.sleepFor(6.0);
      res.set_content("late", "text/plain");
    });
    routes.Get("/large", [](const auto&, auto& res) {
      res.set_content(pattern(8 << 20), "application/octet-stream");
    });
    // Two megabytes in pieces, with no length announced up front.
    routes.Get("/big-chunked", [](const auto&, auto& res) {
      res.set_chunked_content_provider("application/octet-stream",
                                       [](size_t offset, httplib::DataSink& sink) {
                                         if (offset >= (2u << 20)) {
                                           sink.done();
                                           return true;
                                         }
                                         return sink.write(pattern(64 << 10).data(), 64 << 10);
                                       });
    });
    routes.Get("/big", [](const auto&, auto& res) {
      res.set_content(pattern(2 << 20), "application/octet-stream");
    });
    routes.Get("/to-hello", [](const auto&, auto& res) { res.set_redirect("/hello"); });
    routes.Get("/to-ftp", [](const auto&, auto& res) { res.set_redirect("ftp://127.0.0.1/x"); });
    routes.Get("/loop", [](const auto&, auto& res) { res.set_redirect("/loop"); });
    routes.Get("/beacon", [](const auto&, auto& res) { res.status = 204; });
    server_.start();
    loop_ = std::make_shared<MainLoop>(MainContextChoice::Private);
    start_ = Steady::now();
  }

  void TearDown() override { fs::remove_all(tempFolder_); }

  std::unique_ptr<CurlHttp> makeHttp(HttpOptions options = {}) {
    return std::make_unique<CurlHttp>(loop_, std::move(options));
  }

  DataCompletion dataInto(Outcome& out) {
    return [this, &out](std::string body, HttpResponse response, std::optional<HttpError> error) {
      out = {true,
             loop_->isLoopThread(),
             seconds(),
             std::move(body),
             response.status,
             std::move(error),
             std::nullopt,
             std::move(response.headers)};
    };
  }

  // Reads the temporary file while the completion owns it, as the core's move would.
  DownloadCompletion downloadInto(Outcome& out) {
    return [this, &out](std::optional<std::string> file, HttpResponse response,
                        std::optional<HttpError> error) {
      out = {true,
             loop_->isLoopThread(),
             seconds(),
             file ? readFile(*file) : std::string(),
             response.status,
             std::move(error),
             std::move(file),
             {}};
    };
  }

  static DataRequest get(std::string url) {
    DataRequest request;
    request.url = std::move(url);
    return request;
  }

  DownloadRequest downloadOf(const std::string& path) {
    DownloadRequest request;
    request.url = server_.url(path);
    request.temporaryDirectory = tempFolder_;
    return request;
  }

  bool runUntilDone(std::initializer_list<const Outcome*> outcomes, double timeout = 10) {
    return loop_->runUntil(
        [&] {
          for (auto* o : outcomes) {
            if (!o->done) return false;
          }
          return true;
        },
        timeout);
  }

  double seconds() const { return std::chrono::duration<double>(Steady::now() - start_).count(); }

  LoopbackServer server_;
  std::shared_ptr<MainLoop> loop_;
  std::string tempFolder_;
  Steady::time_point start_;
};

TEST_F(CurlHttpTest, DataRequestsCompleteLaterOnTheLoopThreadWithStatusAndBody) {
  auto http = makeHttp();
  Outcome hello, posted, missing;
  http->dataRequest(get(server_.url("/hello")), dataInto(hello));
  http->dataRequest({server_.url("/echo"), "POST", "a=1&b=two", 3.0, false}, dataInto(posted));
  http->dataRequest(get(server_.url("/missing")), dataInto(missing));
  EXPECT_FALSE(hello.done);  // never inside the call, even for a fast server
  ASSERT_TRUE(runUntilDone({&hello, &posted, &missing}));

  EXPECT_TRUE(hello.onLoopThread && posted.onLoopThread && missing.onLoopThread);
  EXPECT_EQ(hello.body, "hello world");
  EXPECT_EQ(hello.status, 200);
  EXPECT_EQ(hello.headers["X-Test"], "yes");
  EXPECT_FALSE(hello.error);
  EXPECT_EQ(posted.body, "a=1&b=two");
  const auto echo = server_.hitsOn("/echo");
  ASSERT_EQ(echo.size(), 1u);
  EXPECT_EQ(echo[0].contentType, "application/x-www-form-urlencoded");
  EXPECT_EQ(echo[0].body, "a=1&b=two");
  // An HTTP error status is an answer, not a transport error.
  EXPECT_EQ(missing.status, 404);
  EXPECT_EQ(missing.body, "nope");
  EXPECT_FALSE(missing.error);

  const auto log = http->requestLog();
  ASSERT_EQ(log.size(), 3u);
  EXPECT_TRUE(log[0].allowsCellularAccess);
  EXPECT_EQ(log[1].method, "POST");
  EXPECT_FALSE(log[1].allowsCellularAccess);
}

TEST_F(CurlHttpTest, IdleTimeOutEndsStallsButNeverASlowSteadyTransfer) {
  auto http = makeHttp();
  Outcome steady, stall, silent;
  http->download(downloadOf("/steady"), downloadInto(steady));
  http->download(downloadOf("/stall"), downloadInto(stall));
  http->dataRequest(get(server_.url("/silent")), dataInto(silent));
  ASSERT_TRUE(runUntilDone({&steady, &stall, &silent}, 12));

  ASSERT_TRUE(stall.error);
  EXPECT_EQ(stall.error->code, kHttpErrorTimedOut);
  EXPECT_GT(stall.after, 2.9);
  EXPECT_LT(stall.after, 4.0);
  EXPECT_FALSE(stall.file);
  ASSERT_TRUE(silent.error);
  EXPECT_EQ(silent.error->code, kHttpErrorTimedOut);
  EXPECT_GT(silent.after, 2.9);
  EXPECT_LT(silent.after, 4.0);

  EXPECT_FALSE(steady.error) << steady.error->message;
  EXPECT_GT(steady.after, 4.4);  // well past the idle time-out
  EXPECT_EQ(steady.body, std::string(10 * kChunk, 's'));
  EXPECT_TRUE(steady.onLoopThread && stall.onLoopThread && silent.onLoopThread);
  EXPECT_TRUE(folderEntries(tempFolder_).empty());
}

TEST_F(CurlHttpTest, DownloadsLandInTheGivenFolderAndNothingOutlivesTheCompletion) {
  auto http = makeHttp();
  Outcome kept, moved;
  http->download(downloadOf("/large"), downloadInto(kept));
  const fs::path target = fs::path(tempFolder_) / "video.mp4";
  http->download(downloadOf("/hello"), [&](std::optional<std::string> file, HttpResponse response,
                                           std::optional<HttpError> error) {
    moved = {true, loop_->isLoopThread(), seconds(), {}, response.status, error, file, {}};
    if (file) fs::rename(*file, target);  // the caller's move into place
  });
  ASSERT_TRUE(runUntilDone({&kept, &moved}));

  ASSERT_FALSE(kept.error) << kept.error->message;
  ASSERT_TRUE(kept.file);
  EXPECT_EQ(fs::path(*kept.file).parent_path(), fs::path(tempFolder_));
  EXPECT_EQ(kept.status, 200);
  EXPECT_TRUE(kept.body == pattern(8 << 20)) << "downloaded content differs";
  EXPECT_TRUE(kept.onLoopThread && moved.onLoopThread);
  EXPECT_EQ(readFile(target), "hello world");
  EXPECT_EQ(folderEntries(tempFolder_), std::vector<std::string>{target.string()});
}

TEST_F(CurlHttpTest, SizeCapsFailCleanlyWhetherOrNotTheLengthIsAnnounced) {
  HttpOptions options;
  options.maxDownloadBytes = 1 << 20;
  options.maxBodyBytes = 1 << 20;
  auto http = makeHttp(options);
  Outcome chunked, announced, data, noFolder;
  http->download(downloadOf("/big-chunked"), downloadInto(chunked));
  http->download(downloadOf("/big"), downloadInto(announced));
  http->dataRequest(get(server_.url("/big-chunked")), dataInto(data));
  auto request = downloadOf("/hello");
  request.temporaryDirectory = tempFolder_ + "/does-not-exist";
  http->download(request, downloadInto(noFolder));
  EXPECT_FALSE(noFolder.done);
  ASSERT_TRUE(runUntilDone({&chunked, &announced, &data, &noFolder}));

  for (const Outcome* o : {&chunked, &announced, &data}) {
    ASSERT_TRUE(o->error);
    EXPECT_EQ(o->error->code, kHttpErrorTooLarge) << o->error->message;
    EXPECT_FALSE(o->file);
    EXPECT_LE(o->body.size(), 1u << 20);
    EXPECT_TRUE(o->onLoopThread);
  }
  ASSERT_TRUE(noFolder.error);
  EXPECT_EQ(noFolder.error->code, kHttpErrorFile);
  EXPECT_TRUE(folderEntries(tempFolder_).empty());
}

TEST_F(CurlHttpTest, RedirectsAreFollowedOnlyOnTheWebAndOnlySoFar) {
  HttpOptions options;
  options.maxRedirects = 3;
  auto http = makeHttp(options);
  Outcome followed, toFtp, looping;
  http->dataRequest(get(server_.url("/to-hello")), dataInto(followed));
  http->dataRequest(get(server_.url("/to-ftp")), dataInto(toFtp));
  http->dataRequest(get(server_.url("/loop")), dataInto(looping));
  ASSERT_TRUE(runUntilDone({&followed, &toFtp, &looping}));

  EXPECT_EQ(followed.body, "hello world");
  EXPECT_FALSE(followed.error);
  ASSERT_TRUE(toFtp.error);
  EXPECT_EQ(toFtp.error->code, kHttpErrorUnsupportedProtocol) << toFtp.error->message;
  ASSERT_TRUE(looping.error);
  EXPECT_EQ(looping.error->code, kHttpErrorTooManyRedirects);
  EXPECT_EQ(server_.hitsOn("/loop").size(), 4u);
}

TEST_F(CurlHttpTest, HostMappingSendsANamedHostToTheLoopbackServer) {
  HttpOptions options;
  options.connectTo = {"ads.tovani.example:80:127.0.0.1:" + std::to_string(server_.port())};
  auto http = makeHttp(options);
  Outcome mapped;
  http->dataRequest(get("http://ads.tovani.example/host"), dataInto(mapped));
  ASSERT_TRUE(runUntilDone({&mapped}));
  EXPECT_FALSE(mapped.error);
  EXPECT_EQ(mapped.body, "ads.tovani.example");
  EXPECT_EQ(http->fetchBlocking("http://ads.tovani.example/host"), "ads.tovani.example");
}

TEST_F(CurlHttpTest, BeaconsGoOutUnansweredAndBadUrlsSendNothing) {
  auto http = makeHttp();
  http->beacon("not a url at all");
  http->beacon("ftp://127.0.0.1:" + std::to_string(server_.port()) + "/beacon");
  http->beacon(server_.url("/beacon?event=start"));
  EXPECT_TRUE(loop_->runUntil([&] { return !server_.hitsOn("/beacon").empty(); }, 5));
  loop_->runFor(0.2);
  EXPECT_EQ(server_.hits().size(), 1u);
  EXPECT_EQ(http->requestLog().size(), 1u);
}

TEST_F(CurlHttpTest, BlockingFetchesReuseOneConnectionAndAreBounded) {
  HttpOptions options;
  options.blockingFetchTimeoutSeconds = 1.0;
  auto http = makeHttp(options);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(http->fetchBlocking(server_.url("/hello")), "hello world");
  const auto hits = server_.hitsOn("/hello");
  ASSERT_EQ(hits.size(), 6u);
  for (const auto& hit : hits) EXPECT_EQ(hit.remotePort, hits[0].remotePort);

  EXPECT_EQ(http->fetchBlocking(server_.url("/missing")), std::nullopt);
  EXPECT_EQ(http->fetchBlocking("ftp://127.0.0.1/x"), std::nullopt);
  const auto before = Steady::now();
  EXPECT_EQ(http->fetchBlocking(server_.url("/silent")), std::nullopt);
  EXPECT_LT(std::chrono::duration<double>(Steady::now() - before).count(), 1.6);
}

TEST_F(CurlHttpTest, DestroyingTheClientDropsTransfersWithTheirFiles) {
  auto http = makeHttp();
  Outcome never;
  http->download(downloadOf("/stall"), downloadInto(never));
  loop_->runUntil([&] { return !server_.hitsOn("/stall").empty(); }, 3);
  loop_->runFor(0.2);
  EXPECT_EQ(folderEntries(tempFolder_).size(), 1u);  // the transfer's file, being written
  const auto before = Steady::now();
  http.reset();
  EXPECT_LT(std::chrono::duration<double>(Steady::now() - before).count(), 1.0);
  loop_->runFor(0.2);
  EXPECT_FALSE(never.done);
  EXPECT_TRUE(folderEntries(tempFolder_).empty());

  // A finished download whose completion never runs, because its loop is gone, leaves nothing.
  auto other = makeHttp();
  Outcome unrun;
  other->download(downloadOf("/hello"), downloadInto(unrun));
  while (server_.hitsOn("/hello").empty())
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // the worker posts, nobody runs
  EXPECT_EQ(folderEntries(tempFolder_).size(), 1u);
  other.reset();
  loop_.reset();
  EXPECT_FALSE(unrun.done);
  EXPECT_TRUE(folderEntries(tempFolder_).empty());
}

}  // namespace
}  // namespace tovani::linux
