// The cost of starting one showing: from TovaniSDK::tovaniShow to the player's play(), with
// the video already cached, against the development ad server on loopback. It is set
// against a null pipeline measured in the same run: the same VAST bytes fetched with a
// plain reused libcurl handle, parsed by expat into nothing, and the two store queries a
// showing runs, issued with raw SQLite on the same store file. Samples of the two
// alternate, so that drift of the machine weighs on both alike.
//
//   bench_show_path [showings]      (default 200; a few warm-up showings are discarded)
#include <curl/curl.h>
#include <expat.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "sdk/FacadeState.hpp"
#include "store/Statements.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "util/Text.hpp"
#include "viewer/tovaniViewer.hpp"

#pragma push_macro("linux")
#undef linux

namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr int kDefaultShowings = 200;
constexpr int kWarmUpShowings = 5;
constexpr double kMedianTarget = 1.3;
constexpr double kP95Target = 1.5;
constexpr const char* kStoreFile = "tnad_005.data";
constexpr const char* kAdId = "2001";
constexpr const char* kVideo = "video_10s.mp4";

// One advert, not skippable, without a frequency cap and without an end card: the path
// measured is request, parse, store look-up, file check and playback set-up, and nothing
// that only a skippable or capped ad adds (the countdown images are a blocking fetch).
constexpr const char* kScenario = R"({
  "name": "show-path bench",
  "description": "One non-skippable 10-second ad without frequency cap or end card.",
  "adverts": [{
    "ads_no": 2001, "slot": "DEMO_SLOT", "url": "https://www.example.com/landing/bench",
    "policy": {"campaign": "bench", "product": "bench"},
    "sources": [{"video": "video_10s.mp4", "policy": {"clicktype": "type1-1"}}]
  }],
  "vast": [{
    "id": 2001,
    "extensions": {"SkipUse": "false", "EndcardUse": "false", "ClickType": "type1-1",
                   "Etc": "bench^1"}
  }]
})";

// A player that only notes when play() was called. GStreamer's decoder start-up is left
// out on purpose: the null pipeline has nothing like it, and the question is what the
// SDK's own path costs. Ticks never fire, so a showing stays at its start until closed.
struct PlayLog {
  int plays = 0;
  Steady::time_point lastPlay{};
};

class StampingPlayer final : public tovani::MediaPlayer {
 public:
  explicit StampingPlayer(std::shared_ptr<PlayLog> log) : log_(std::move(log)) {}
  void play() override {
    log_->lastPlay = Steady::now();
    ++log_->plays;
  }
  void pause() override {}
  void seek(double) override {}
  double currentTime() const override { return 0; }
  double duration() const override { return std::numeric_limits<double>::quiet_NaN(); }
  bool hasCurrentItem() const override { return true; }
  tovani::TimeObserverToken addPeriodicTimeObserver(double, std::function<void(double)>) override {
    observer_ = ++lastToken_;
    return *observer_;
  }
  bool removeTimeObserver(tovani::TimeObserverToken token) override {
    if (observer_ != token) return false;
    observer_.reset();
    return true;
  }
  void setHoldsLastFrameAtEnd(bool) override {}
  void setItemEndedHandler(std::function<void()>) override {}

 private:
  std::shared_ptr<PlayLog> log_;
  std::optional<tovani::TimeObserverToken> observer_;
  tovani::TimeObserverToken lastToken_ = 0;
};

class StampingPlayerFactory final : public tovani::MediaPlayerFactory {
 public:
  std::shared_ptr<tovani::MediaPlayer> createPlayer(const std::string&) override {
    return std::make_shared<StampingPlayer>(log);
  }
  std::shared_ptr<PlayLog> log = std::make_shared<PlayLog>();
};

class Host final : public tovani::TovaniDelegate {
 public:
  void tovaniCallBack(int32_t result) override { results.push_back(result); }
  std::vector<int32_t> results;
};

// ---- the null pipeline ----

size_t appendBody(char* data, size_t size, size_t count, void* user) {
  static_cast<std::string*>(user)->append(data, size * count);
  return size * count;
}

class PlainFetch {
 public:
  PlainFetch(const std::string& url, const std::vector<std::string>& connectTo) {
    for (const auto& mapping : connectTo) mappings_ = curl_slist_append(mappings_, mapping.c_str());
    easy_ = curl_easy_init();
    if (easy_ == nullptr) throw std::runtime_error("curl_easy_init failed");
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_CONNECT_TO, mappings_);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
  }
  ~PlainFetch() {
    curl_easy_cleanup(easy_);
    curl_slist_free_all(mappings_);
  }
  PlainFetch(const PlainFetch&) = delete;
  PlainFetch& operator=(const PlainFetch&) = delete;

  const std::string& get() {
    body_.clear();
    const CURLcode code = curl_easy_perform(easy_);
    long status = 0;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
    if (code != CURLE_OK || status != 200) throw std::runtime_error("plain VAST fetch failed");
    return body_;
  }

 private:
  curl_slist* mappings_ = nullptr;
  CURL* easy_ = nullptr;
  std::string body_;
};

void XMLCALL onStart(void*, const XML_Char*, const XML_Char**) {}
void XMLCALL onEnd(void*, const XML_Char*) {}
void XMLCALL onText(void*, const XML_Char*, int) {}

void parseIntoNothing(const std::string& xml) {
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetElementHandler(parser, onStart, onEnd);
  XML_SetCharacterDataHandler(parser, onText);
  const auto status = XML_Parse(parser, xml.data(), static_cast<int>(xml.size()), XML_TRUE);
  XML_ParserFree(parser);
  if (status != XML_STATUS_OK) throw std::runtime_error("the VAST answer does not parse");
}

int rawQuery(const std::string& path, const std::string& sql) {
  int rows = 0;
  sqlite3* db = nullptr;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK) {
      while (sqlite3_step(statement) == SQLITE_ROW) ++rows;
    }
    sqlite3_finalize(statement);
  }
  sqlite3_close(db);
  return rows;
}

// ---- set-up and statistics ----

int cachedVideos(const std::string& documents) {
  const std::string store = (fs::path(documents) / kStoreFile).string();
  std::error_code ec;
  if (!fs::exists(store, ec) || fs::file_size(store, ec) == 0) return 0;
  int cached = 0;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 200);
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, "select video_filename from tn_adverts where use_flag = 1", -1,
                           &st, nullptr) == SQLITE_OK) {
      while (sqlite3_step(st) == SQLITE_ROW) {
        const auto* name = sqlite3_column_text(st, 0);
        if (name && fs::exists(fs::path(documents) / reinterpret_cast<const char*>(name), ec)) {
          ++cached;
        }
      }
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  return cached;
}

double percentile(std::vector<double> samples, double share) {
  std::sort(samples.begin(), samples.end());
  // Nearest rank: the smallest sample with at least `share` of all samples at or below it.
  const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(samples.size())));
  return samples[std::clamp<size_t>(rank, 1, samples.size()) - 1];
}

double median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  const size_t n = samples.size();
  return n % 2 == 1 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
}

double microseconds(Steady::duration d) {
  return std::chrono::duration<double, std::micro>(d).count();
}

struct Bench {
  tovani::adserver::AdServer& server;
  tovani::linux::LinuxPlatform& lp;
  StampingPlayerFactory& players;
  Host& host;
  std::string documents;

  // One showing, tovaniShow to play(), then closed the way the host's close would close it.
  double sdkShowing() {
    auto root = std::make_shared<tovani::View>();
    root->frame = {0, 0, 375, 667};
    const int playsBefore = players.log->plays;
    const size_t callbacksBefore = host.results.size();
    const auto start = Steady::now();
    tovani::TovaniSDK::tovaniShow(root);
    lp.mainLoop->runUntil(
        [&] { return players.log->plays > playsBefore || host.results.size() > callbacksBefore; },
        10.0);
    if (players.log->plays == playsBefore) {
      throw std::runtime_error(host.results.size() > callbacksBefore
                                   ? "the showing ended with result " +
                                         std::to_string(host.results.back()) + " instead of playing"
                                   : "the showing did not start within 10 s");
    }
    const double elapsed = microseconds(players.log->lastPlay - start);
    tovani::mainViewer()->adClose_TNSDK();
    return elapsed;
  }

  double nullShowing(PlainFetch& fetch, const std::string& playable, const std::string& cap) {
    const std::string store = (fs::path(documents) / kStoreFile).string();
    const auto start = Steady::now();
    parseIntoNothing(fetch.get());
    const int found = rawQuery(store, playable);
    rawQuery(store, cap);
    const auto end = Steady::now();
    if (found != 1) throw std::runtime_error("the playable-advert query found no row");
    return microseconds(end - start);
  }
};

std::string vastUrlOf(const tovani::adserver::LoggedRequest& r) {
  return "http://" + r.host + r.path + (r.query.empty() ? "" : "?" + r.query);
}

void report(const char* name, const std::vector<double>& samples) {
  std::printf("%-42s median %8.1f us   p95 %8.1f us   (n=%zu)\n", name, median(samples),
              percentile(samples, 0.95), samples.size());
}

int run(int showings) {
  tovani::adserver::Options serverOptions;
  serverOptions.scenarioText = kScenario;
  tovani::adserver::AdServer server(serverOptions);
  server.start();

  std::string pattern = (fs::temp_directory_path() / "tovani-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no documents folder");
  const std::string documents = pattern;
  struct RemoveFolder {
    std::string path;
    ~RemoveFolder() {
      std::error_code ec;
      fs::remove_all(path, ec);
    }
  } removeFolder{documents};

  tovani::linux::LinuxPlatformOptions lo;
  lo.mainContext = tovani::linux::MainContextChoice::Private;
  const auto& hosts = server.hosts();
  const std::string http = "127.0.0.1:" + std::to_string(server.httpPort());
  const std::string https = "127.0.0.1:" + std::to_string(server.httpsPort());
  for (const auto& name : {hosts.production, hosts.test, hosts.cdnHost}) {
    lo.http.connectTo.push_back(name + ":80:" + http);
    lo.http.connectTo.push_back(name + ":443:" + https);
  }
  lo.http.caFile = server.caFile().string();
  lo.device.documentsDirectory = documents;
  lo.device.hardwareModel = "iPhone9,3";
  lo.device.osVersion = "10.3";
  lo.reachability.overrideFlags = 0x2;  // loopback counts as online whatever the routes say
  lo.logSink = [](const std::string&) {};
  auto lp = tovani::linux::makeLinuxPlatform(lo);
  auto players = std::make_shared<StampingPlayerFactory>();
  lp.platform->players = players;

  auto host = std::make_shared<Host>();
  tovani::TovaniSDK::setPlatform(lp.platform);
  tovani::TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT");
  tovani::TovaniSDK::delegate(host);
  if (!lp.mainLoop->runUntil([&] { return cachedVideos(documents) == 1; }, 30.0)) {
    throw std::runtime_error("the store and the video were not in place within 30 s");
  }

  Bench bench{server, lp, *players, *host, documents};
  for (int i = 0; i < kWarmUpShowings; ++i) bench.sdkShowing();

  // The null pipeline asks for exactly what the SDK asked for.
  std::optional<tovani::adserver::LoggedRequest> vast;
  for (const auto& r : server.requests()) {
    if (r.route == "vast") vast = r;
  }
  if (!vast) throw std::runtime_error("the SDK sent no VAST request");
  PlainFetch fetch(vastUrlOf(*vast), lo.http.connectTo);
  const std::string playable = tovani::formatAt(tovani::sql::kSelectPlayableAdvert, {kAdId, kVideo});
  const std::string cap = tovani::formatAt(tovani::sql::kSelectRollingCapReached, {kAdId, "7", "1"});
  for (int i = 0; i < kWarmUpShowings; ++i) bench.nullShowing(fetch, playable, cap);

  std::vector<double> sdk;
  std::vector<double> null;
  for (int i = 0; i < showings; ++i) {
    if (i % 2 == 0) {
      sdk.push_back(bench.sdkShowing());
      null.push_back(bench.nullShowing(fetch, playable, cap));
    } else {
      null.push_back(bench.nullShowing(fetch, playable, cap));
      sdk.push_back(bench.sdkShowing());
    }
  }

  std::printf("show path over loopback, %d showings (after %d warm-up), VAST %zu bytes\n",
              showings, kWarmUpShowings, fetch.get().size());
  report("SDK: tovaniShow -> play()", sdk);
  report("null: curl GET + expat + S8 + S10 (raw)", null);
  const double medianRatio = median(sdk) / median(null);
  const double p95Ratio = percentile(sdk, 0.95) / percentile(null, 0.95);
  std::printf("ratio median %.2f (target <= %.1f: %s)   p95 %.2f (target <= %.1f: %s)\n",
              medianRatio, kMedianTarget, medianRatio <= kMedianTarget ? "met" : "MISSED", p95Ratio,
              kP95Target, p95Ratio <= kP95Target ? "met" : "MISSED");

  tovani::TovaniSDK::setPlatform(nullptr);
  tovani::resetFacadeForTesting();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int showings = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultShowings;
  try {
    return run(showings);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_show_path: %s\n", e.what());
    return 1;
  }
}

#pragma pop_macro("linux")
