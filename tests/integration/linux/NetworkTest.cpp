// The HTTP client and the headless web view against a real server on 127.0.0.1.
#include <gtest/gtest.h>
#include <httplib.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <ranges>

#include "tovani/linux/HeadlessWebView.hpp"
#include "tovani/linux/MainLoop.hpp"

namespace tovani::linux {
namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;
constexpr size_t kMiB = 1 << 20;

std::string pattern(size_t size) {
  std::string text(size, '\0');
  for (size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 4096) % 26);
  return text;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

constexpr const char* kEndCard = R"(<a class="btn" href="/to-hello?a=1&amp;b=2">again</a>
<A HREF='tovaniksdkcall://close'>close</A> <area shape=rect href=https://apps.example/app/1>
<!-- <a href="/commented-out"> --><script>document.write('<a href="/by-script">');</script>)";

class NetworkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.Get("/missing", [](const auto&, auto& res) { res.status = 404; });
    server_.Get(".*", [this](const auto& req, auto& res) { answer(req, res); });
    server_.Post(".*", [this](const auto& req, auto& res) { answer(req, res); });
    // Curl keeps its connections open, and each one holds a server thread.
    server_.set_keep_alive_max_count(100);
    server_.new_task_queue = [] { return new httplib::ThreadPool(32); };
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  void TearDown() override {
    stopping_ = true;
    server_.stop();
    thread_.join();
    fs::remove_all(folder_);
  }

  // /chunks/<bytes>/<pause> sends 1000-byte pieces `pause` seconds apart with no length ahead;
  // /sized/<bytes> sends a patterned body; /to-<x> redirects; /silent says nothing for 6 s.
  void answer(const httplib::Request& req, httplib::Response& res) {
    const std::string& path = req.path;
    {
      std::lock_guard lock(mutex_);
      hits_.push_back(req);
    }
    size_t total = 0;
    double pause = 0;
    if (std::sscanf(path.c_str(), "/chunks/%zu/%lf", &total, &pause) == 2) {
      res.set_chunked_content_provider("video/mp4", [=, this](size_t at, httplib::DataSink& out) {
        if (at >= total) return out.done(), true;
        return (at == 0 || sleepFor(pause)) && out.write(std::string(1000, 's').data(), 1000);
      });
    } else if (path.starts_with("/sized/")) {
      res.set_content(pattern(std::stoul(path.substr(7))), "video/mp4");
    } else if (path == "/cut") {  // half a page, then the connection drops
      res.set_chunked_content_provider("text/html", [](size_t at, httplib::DataSink& out) {
        return at == 0 && out.write(std::string(1000, 'c').data(), 1000);
      });
    } else if (path == "/refresh") {
      res.set_content(
          R"(<meta http-equiv="Refresh" content="0; URL='https://elsewhere.example/x'">)",
          "text/html");
    } else if (path.starts_with("/to-")) {
      res.set_redirect(path == "/to-ftp"         ? "ftp://127.0.0.1/x"
                       : path == "/to-hello"     ? "/hello"
                       : path == "/to-elsewhere" ? "https://elsewhere.example/shop"
                                                 : path);
    } else if (path != "/silent" || sleepFor(6)) {
      res.set_content(path == "/endcard" ? kEndCard : "hello world", "text/html");
    }
  }
  // A handler's wait, cut short when the test ends.
  bool sleepFor(double seconds) {
    for (int ms = 0; ms < seconds * 1000 && !stopping_; ms += 5) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return !stopping_;
  }
  std::string url(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  std::vector<httplib::Request> hits(const std::string& path = "") {
    std::lock_guard lock(mutex_);
    auto found =
        hits_ | std::views::filter([&](auto& h) { return path.empty() || h.path == path; });
    return {found.begin(), found.end()};
  }

  auto filesLeft() const { return std::distance(fs::directory_iterator(folder_), {}); }

  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
  std::atomic<bool> stopping_ = false;
  std::mutex mutex_;
  std::vector<httplib::Request> hits_;
  std::shared_ptr<MainLoop> loop_ = std::make_shared<MainLoop>(MainContextChoice::Private);
  char name_[24] = "/tmp/tovani-http-XXXXXX";
  std::string folder_ = mkdtemp(name_);
};

TEST_F(NetworkTest, TransfersCompleteLaterOnTheLoopThreadAndLeaveNoFileBehind) {
  struct Case {
    std::string target;
    const char* into;  // downloads: the subfolder; data requests: nullptr
    int error;
    long status;
    std::string body;
    double earliest, latest;  // seconds
  };
  // A few connections at a time: the server's accept queue is short, and a refused connection
  // is retried only a second later, which would blur the idle time-outs.
  const std::vector<std::vector<Case>> batches = {
      {{url("/hello"), nullptr, 0, 200, "hello world", 0, 9},
       {url("/missing"), nullptr, 0, 404, "", 0, 9},  // an answer, not a transport error
       {"http://ads.tovani.example/mapped", nullptr, 0, 200, "hello world", 0, 9},
       {url("/to-hello"), nullptr, 0, 200, "hello world", 0, 9},
       {url("/to-ftp"), nullptr, kHttpErrorUnsupportedProtocol, 0, "", 0, 9},
       {url("/to-loop"), nullptr, kHttpErrorTooManyRedirects, 0, "", 0, 9},
       {url("/hello"), "/does-not-exist", kHttpErrorFile, 0, "", 0, 9}},
      {{url("/silent"), nullptr, kHttpErrorTimedOut, 0, "", 2.9, 4},
       {url("/chunks/2000/6"), "", kHttpErrorTimedOut, 0, "", 2.9, 4},  // one piece, then none
       // Slow but never idle for long: it outlasts the idle time-out and still succeeds.
       {url("/chunks/10000/0.5"), "", 0, 200, std::string(10'000, 's'), 4.4, 9}},
      {{url("/chunks/13631488/0"), nullptr, kHttpErrorTooLarge, 0, "", 0, 9},  // over 1 MiB
       {url("/sized/8388608"), "", 0, 200, pattern(8 * kMiB), 0, 9},
       {url("/sized/13631488"), "", kHttpErrorTooLarge, 0, "", 0, 9},  // over 12 MiB, said ahead
       {url("/chunks/13631488/0"), "", kHttpErrorTooLarge, 0, "", 0, 9}},
  };
  HttpOptions options;
  options.connectTo = {"ads.tovani.example:80:127.0.0.1:" + std::to_string(port_)};
  options.maxDownloadBytes = 12 * kMiB;
  options.maxBodyBytes = kMiB;
  options.maxRedirects = 3;
  auto http = std::make_unique<CurlHttp>(loop_, options);
  const fs::path moved = fs::path(folder_) / "video.mp4";
  http->download({url("/hello"), 3.0, true, folder_}, [&](auto file, auto, auto) {
    if (file) fs::rename(*file, moved);  // the caller's move into place
  });
  size_t done = 0, started = 0;
  for (const auto& batch : batches) {
    const auto start = Steady::now();
    for (const Case& c : batch) {
      const auto check = [&, start](std::string body, long status, auto e, bool file) {
        const double after = std::chrono::duration<double>(Steady::now() - start).count();
        SCOPED_TRACE(c.target + (c.into ? " download" : " data"));
        EXPECT_TRUE(loop_->isLoopThread());
        EXPECT_EQ(e ? e->code : 0, c.error);
        EXPECT_EQ(file, c.into && !c.error);
        EXPECT_EQ(status, c.error ? status : c.status);
        EXPECT_TRUE(c.error ? body.size() <= kMiB : body == c.body) << body.size() << " bytes";
        EXPECT_TRUE(after >= c.earliest && after < c.latest) << after << " s";
        ++done;
      };
      if (c.into) {
        http->download({c.target, 3.0, true, folder_ + c.into}, [=](auto file, auto r, auto e) {
          check(file ? readFile(*file) : "", r.status, e, file.has_value());
        });
      } else {
        http->dataRequest({c.target, "GET", "", 3.0, true}, [=](std::string body, auto r, auto e) {
          check(body, r.status, e, false);
        });
      }
    }
    EXPECT_EQ(done, started);  // never inside the call
    started += batch.size();
    ASSERT_TRUE(loop_->runUntil([&] { return done == started; }, 12));
  }
  EXPECT_EQ(hits("/to-loop").size(), 4u);
  EXPECT_EQ(hits("/mapped").at(0).get_header_value("Host"), "ads.tovani.example");
  EXPECT_EQ(readFile(moved), "hello world");

  // Destroying the client drops a transfer with its file, at once.
  http->download({url("/chunks/2000/6"), 3.0, true, folder_}, [&](auto, auto, auto) { ++done; });
  EXPECT_TRUE(loop_->runUntil([&] { return filesLeft() == 2; }, 3));  // its file, being written
  const auto before = Steady::now();
  http.reset();
  EXPECT_LT(Steady::now() - before, std::chrono::seconds(1));
  loop_->runFor(0.2);
  EXPECT_EQ(done, started);
  EXPECT_EQ(filesLeft(), 1);  // only the one moved into place
}

TEST_F(NetworkTest, BlockingFetchesReuseOneConnectionAndAreBounded) {
  HttpOptions options;
  options.blockingFetchTimeoutSeconds = 1.0;
  CurlHttp http(loop_, options);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(http.fetchBlocking(url("/hello")), "hello world");
  const auto fetched = hits("/hello");
  ASSERT_EQ(fetched.size(), 6u);
  for (const auto& hit : fetched) EXPECT_EQ(hit.remote_port, fetched[0].remote_port);
  EXPECT_EQ(http.fetchBlocking(url("/missing")), std::nullopt);
  const auto before = Steady::now();
  EXPECT_EQ(http.fetchBlocking(url("/silent")), std::nullopt);
  EXPECT_LT(Steady::now() - before, std::chrono::milliseconds(1600));
}

TEST_F(NetworkTest, AWebViewPostsAsksTheDeciderAndFollowsLinksInPlace) {
  HeadlessWebViewFactory factory(std::make_shared<CurlHttp>(loop_), loop_);
  auto view = std::dynamic_pointer_cast<HeadlessWebView>(factory.createWebView());
  std::vector<WebRequest> asked;
  view->setNavigationDecider([&](const WebRequest& request) {
    asked.push_back(request);
    return request.url.starts_with(url("/")) && !request.url.ends_with("/refused");
  });
  const auto loaded = [&](int pages) {
    return loop_->runUntil([&] { return view->pagesLoaded() == pages && !view->isLoading(); }, 5);
  };
  view->loadRequest({url("/refused"), "POST", "x=1"});
  view->loadRequest({url("/endcard"), "POST", "adid=7&type=1"});
  EXPECT_TRUE(asked.empty()) << "asked inside loadRequest";
  ASSERT_TRUE(loaded(1));
  EXPECT_TRUE(asked[1].method == "POST" && asked[1].body == "adid=7&type=1");
  EXPECT_EQ(hits("/endcard").at(0).body, "adid=7&type=1");
  EXPECT_EQ(hits("/endcard").at(0).get_header_value("Content-Type"),
            "application/x-www-form-urlencoded");
  EXPECT_EQ(view->page()->links,
            (std::vector<std::string>{url("/to-hello?a=1&b=2"), "tovaniksdkcall://close",
                                      "https://apps.example/app/1"}));
  EXPECT_FALSE(view->followLink("tovaniksdkcall://close"));
  EXPECT_FALSE(view->followLink("/refused"));
  // Followed in place with GET; the redirect's hop is put to the decider too.
  EXPECT_TRUE(view->followLink("/to-hello?a=1&b=2"));
  ASSERT_TRUE(loaded(2));
  EXPECT_EQ(asked.size(), 6u);
  EXPECT_TRUE(asked[4].method == "GET" && asked[5].url == url("/hello"));
  EXPECT_EQ(view->page()->url, url("/hello"));
  EXPECT_EQ(view->page()->body, "hello world");
  EXPECT_EQ(hits().size(), 3u);  // the page, to-hello, hello: nothing refused went out
}

// A hostile card: every load reports whether the page came whole, and only a followed link is
// the user's navigation; a meta refresh and the redirects of a load nobody tapped are not.
TEST_F(NetworkTest, AWebViewReportsEachLoadAndWhetherTheUserStartedANavigation) {
  HeadlessWebViewFactory factory(std::make_shared<CurlHttp>(loop_), loop_);
  auto view = std::dynamic_pointer_cast<HeadlessWebView>(factory.createWebView());
  std::vector<std::string> asked;
  std::vector<bool> results;
  view->setNavigationDecider([&](const WebRequest& request) {
    asked.push_back((request.userInitiated ? "user " : "page ") + request.url);
    return request.url.starts_with(url("/"));
  });
  view->setLoadResultHandler([&](bool loaded) { results.push_back(loaded); });
  const auto settle = [&](size_t reports) {
    return loop_->runUntil([&] { return results.size() == reports && !view->isLoading(); }, 5);
  };
  view->loadRequest({url("/missing"), "GET", ""});
  ASSERT_TRUE(settle(1));
  view->loadRequest({url("/cut"), "POST", ""});
  ASSERT_TRUE(settle(2));
  view->loadRequest({url("/to-elsewhere"), "POST", ""});  // a redirect the decider refuses
  ASSERT_TRUE(settle(3));
  view->loadRequest({url("/refresh"), "POST", ""});
  ASSERT_TRUE(settle(4));
  loop_->runFor(0.2);  // the refresh is followed after the load
  EXPECT_TRUE(view->followLink("/to-hello"));
  ASSERT_TRUE(settle(5));
  EXPECT_EQ(results, (std::vector<bool>{false, false, false, true, true}));
  EXPECT_EQ(asked, (std::vector<std::string>{
                       "page " + url("/missing"), "page " + url("/cut"),
                       "page " + url("/to-elsewhere"), "page https://elsewhere.example/shop",
                       "page " + url("/refresh"), "page https://elsewhere.example/x",
                       "user " + url("/to-hello"), "user " + url("/hello")}));
}

TEST_F(NetworkTest, LeftoverTemporaryDownloadsGoAtStartUpButNotOnesStillBeingWritten) {
  const fs::path folder = folder_;
  const std::vector<std::pair<std::string, bool>> files = {
      {"tovani-0a1b2c3d4e5f.download", false},    {"tovani-zzzzzzzzzzzz.download", false},
      {"tovani-ABCDEFGHIJKL.download", true},     {"tovani-notes.download", true},
      {"tovani-0a1b2c3d4e5f.download.mp4", true}, {"my-0a1b2c3d4e5f.download", true}};
  for (const auto& [name, kept] : files) std::ofstream(folder / name) << name;
  fs::create_directory(folder / "tovani-000000000000.download");
  CurlHttp http(loop_);
  bool done = false;
  http.download({url("/chunks/2000/6"), 3.0, true, folder_},
                [&](auto, auto, auto) { done = true; });
  ASSERT_TRUE(loop_->runUntil([&] { return filesLeft() == 8; }, 3));  // its file, being written
  http.removeLeftoverDownloads(folder_);
  for (const auto& [name, kept] : files) EXPECT_EQ(kept, fs::exists(folder / name)) << name;
  EXPECT_TRUE(fs::is_directory(folder / "tovani-000000000000.download"));
  EXPECT_EQ(filesLeft(), 6);  // four kept, the folder and the download in progress
  ASSERT_TRUE(loop_->runUntil([&] { return done; }, 6));
}

}  // namespace
}  // namespace tovani::linux
