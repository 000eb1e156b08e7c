#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <thread>

#include "ports/Rigs.hpp"
#include "support/ScriptedHttp.hpp"
#include "tovani/linux/CurlHttp.hpp"
#include "tovani/linux/MainLoop.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::ports {
namespace {

namespace fs = std::filesystem;

struct Answered {
  std::string body;
  HttpResponse response;
  std::optional<HttpError> error;
  bool done = false;
};

DataRequest dataRequest(const std::string& url, const std::string& method = "GET",
                        const std::string& body = "") {
  DataRequest request;
  request.url = url;
  request.method = method;
  request.body = body;
  return request;
}

TEST_P(HttpConformance, DataRequestsAnswerLaterAndAStatusIsNotAnError) {
  rig->serve("/page", 200, "hello");
  rig->serve("/missing", 404, "none here");
  rig->serve("/form", 200, "taken");
  Answered ok, missing, unreachable, posted;
  const auto into = [](Answered& a) {
    return [&a](std::string body, HttpResponse response, std::optional<HttpError> error) {
      a = {std::move(body), std::move(response), std::move(error), true};
    };
  };
  rig->http().dataRequest(dataRequest(rig->url("/page")), into(ok));
  rig->http().dataRequest(dataRequest(rig->url("/missing")), into(missing));
  rig->http().dataRequest(dataRequest(rig->unreachableUrl()), into(unreachable));
  rig->http().dataRequest(dataRequest(rig->url("/form"), "POST", "a=1&b=%2F^ c"), into(posted));
  EXPECT_FALSE(ok.done || missing.done || unreachable.done || posted.done)
      << "never inside the call";
  ASSERT_TRUE(rig->runUntil(
      [&] { return ok.done && missing.done && unreachable.done && posted.done; }, 10));

  EXPECT_EQ(ok.body, "hello");
  EXPECT_EQ(ok.response.status, 200);
  EXPECT_FALSE(ok.error);
  EXPECT_EQ(missing.response.status, 404);
  EXPECT_EQ(missing.body, "none here");
  EXPECT_FALSE(missing.error);
  EXPECT_TRUE(unreachable.error);
  EXPECT_EQ(unreachable.response.status, 0);
  EXPECT_EQ(posted.body, "taken");
  const auto seen = rig->seen();
  EXPECT_NE(std::find(seen.begin(), seen.end(), "POST /form a=1&b=%2F^ c"), seen.end());
}

TEST_P(HttpConformance, DownloadsLandInTheTemporaryFolderAndAreRemovedAfterwards) {
  const std::string video(100000, 'v');
  rig->serve("/video.mp4", 200, video);
  std::optional<std::string> file;
  std::string content;
  bool done = false, missingDone = false;
  std::optional<HttpError> missingError;
  std::optional<std::string> missingFile;
  DownloadRequest request;
  request.url = rig->url("/video.mp4");
  request.temporaryDirectory = rig->temporaryDirectory();
  rig->http().download(
      request, [&](std::optional<std::string> path, HttpResponse, std::optional<HttpError>) {
        file = path;
        if (path) {
          std::ifstream in(*path, std::ios::binary);
          content.assign(std::istreambuf_iterator<char>(in), {});
        }
        done = true;
      });
  request.url = rig->unreachableUrl();
  rig->http().download(
      request, [&](std::optional<std::string> path, HttpResponse, std::optional<HttpError> error) {
        missingFile = path;
        missingError = error;
        missingDone = true;
      });
  ASSERT_TRUE(rig->runUntil([&] { return done && missingDone; }, 10));
  ASSERT_TRUE(file);
  EXPECT_EQ(fs::path(*file).parent_path(), fs::path(rig->temporaryDirectory()));
  EXPECT_EQ(content, video);
  EXPECT_FALSE(fs::exists(*file)) << "what the caller did not move is removed";
  EXPECT_TRUE(missingError);
  EXPECT_FALSE(missingFile);
}

TEST_P(HttpConformance, BlockingFetchesAnswerOnlySuccessAndBeaconsAreSent) {
  rig->serve("/image.png", 200, "PNG");
  rig->serve("/gone.png", 404, "no");
  rig->serve("/track/start", 200, "");
  EXPECT_EQ(rig->http().fetchBlocking(rig->url("/image.png")), std::optional<std::string>("PNG"));
  EXPECT_EQ(rig->http().fetchBlocking(rig->url("/gone.png")), std::nullopt);
  EXPECT_EQ(rig->http().fetchBlocking(rig->unreachableUrl()), std::nullopt);
  rig->http().beacon(rig->url("/track/start"));
  const auto sent = [&] {
    const auto seen = rig->seen();
    return std::find(seen.begin(), seen.end(), "GET /track/start ") != seen.end();
  };
  EXPECT_TRUE(rig->runUntil(sent, 5));
}

// The fake: routes on virtual time.
struct ScriptedHttpRig : HttpRig {
  ScriptedHttpRig() { fs::create_directories(dir_); }
  ~ScriptedHttpRig() override { fs::remove_all(dir_); }
  MainQueue& queue() override { return *queue_; }
  double now() const override { return queue_->now(); }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    for (double t = 0; t < seconds && !done(); t += 0.01) queue_->advance(0.01);
    return done();
  }
  Http& http() override { return http_; }
  void serve(const std::string& path, long status, const std::string& body) override {
    test::ScriptedHttp::Answer answer;
    answer.body = body;
    answer.status = status;
    http_.onExact(url(path), answer);
  }
  std::string url(const std::string& path) const override { return "http://ports.example" + path; }
  std::string unreachableUrl() const override { return "http://unreachable.example/"; }
  std::vector<std::string> seen() override {
    std::vector<std::string> out;
    for (const auto& r : http_.requests()) {
      if (r.url == unreachableUrl()) continue;
      out.push_back(r.method + " " + r.url.substr(url("").size()) + " " + r.body);
    }
    return out;
  }
  std::string temporaryDirectory() const override { return dir_; }

  std::shared_ptr<test::VirtualMainQueue> queue_ = std::make_shared<test::VirtualMainQueue>();
  test::ScriptedHttp http_{queue_};
  std::string dir_ =
      (fs::temp_directory_path() / ("tovani-ports-" + std::to_string(getpid()))).string();
};

// The real one: libcurl against a loopback server.
struct CurlHttpRig : HttpRig {
  CurlHttpRig() {
    fs::create_directories(dir_);
    server_.new_task_queue = [] { return new httplib::ThreadPool(8); };
    const auto handler = [this](const httplib::Request& req, httplib::Response& res) {
      std::lock_guard lock(mutex_);
      seen_.push_back(req.method + " " + req.path + " " + req.body);
      const auto found = routes_.find(req.path);
      if (found == routes_.end()) {
        res.status = 404;
        return;
      }
      res.status = static_cast<int>(found->second.first);
      res.set_content(found->second.second, "text/plain");
    };
    server_.Get(".*", handler);
    server_.Post(".*", handler);
    port_ = server_.bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_.listen_after_bind(); });
    while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~CurlHttpRig() override {
    http_.reset();
    server_.stop();
    thread_.join();
    fs::remove_all(dir_);
  }
  MainQueue& queue() override { return *loop_; }
  double now() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  bool runUntil(const std::function<bool()>& done, double seconds) override {
    return loop_->runUntil(done, seconds);
  }
  Http& http() override { return *http_; }
  void serve(const std::string& path, long status, const std::string& body) override {
    std::lock_guard lock(mutex_);
    routes_[path] = {status, body};
  }
  std::string url(const std::string& path) const override {
    return "http://127.0.0.1:" + std::to_string(port_) + path;
  }
  std::string unreachableUrl() const override { return "http://127.0.0.1:1/"; }
  std::vector<std::string> seen() override {
    std::lock_guard lock(mutex_);
    return seen_;
  }
  std::string temporaryDirectory() const override { return dir_; }

  std::shared_ptr<linux::MainLoop> loop_ =
      std::make_shared<linux::MainLoop>(linux::MainContextChoice::Private);
  std::shared_ptr<linux::CurlHttp> http_ = std::make_shared<linux::CurlHttp>(loop_);
  std::string dir_ =
      (fs::temp_directory_path() / ("tovani-ports-curl-" + std::to_string(getpid()))).string();
  httplib::Server server_;
  std::thread thread_;
  int port_ = 0;
  std::mutex mutex_;
  std::map<std::string, std::pair<long, std::string>> routes_;
  std::vector<std::string> seen_;
};

INSTANTIATE_TEST_SUITE_P(
    Ports, HttpConformance,
    ::testing::Values(
        RigMaker<HttpRig>{"ScriptedHttp", [] { return std::make_unique<ScriptedHttpRig>(); }},
        RigMaker<HttpRig>{"CurlHttp", [] { return std::make_unique<CurlHttpRig>(); }}),
    rigName<HttpRig>);

}  // namespace
}  // namespace tovani::ports

#pragma pop_macro("linux")
