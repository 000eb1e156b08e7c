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
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sqlite3.h>
#include <stdlib.h>
#include <sys/socket.h>

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

// The Linux HTTP adapter as it is, with the moments the VAST request left the core and its
// answer came back on the main queue noted down, so that a slow showing can be placed.
struct Stamps {
  Steady::time_point requested{};
  Steady::time_point answered{};
};

class StampingHttp final : public tovani::Http {
 public:
  explicit StampingHttp(std::shared_ptr<tovani::Http> inner) : inner_(std::move(inner)) {}
  void dataRequest(tovani::DataRequest request, tovani::DataCompletion done) override {
    stamps->requested = Steady::now();
    inner_->dataRequest(std::move(request), [stamps = stamps, done = std::move(done)](
                                                std::string body, tovani::HttpResponse response,
                                                std::optional<tovani::HttpError> error) {
      stamps->answered = Steady::now();
      done(std::move(body), std::move(response), std::move(error));
    });
  }
  void download(tovani::DownloadRequest request, tovani::DownloadCompletion done) override {
    inner_->download(std::move(request), std::move(done));
  }
  void beacon(const std::string& url) override { inner_->beacon(url); }
  std::optional<std::string> fetchBlocking(const std::string& url) override {
    return inner_->fetchBlocking(url);
  }
  std::shared_ptr<Stamps> stamps = std::make_shared<Stamps>();

 private:
  std::shared_ptr<tovani::Http> inner_;
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
  // With `acceptCompression` the request asks for what the SDK's HTTP adapter asks for
  // (every encoding libcurl decodes), so that the server sends the very bytes the SDK gets.
  PlainFetch(const std::string& url, const std::vector<std::string>& connectTo,
             bool acceptCompression) {
    for (const auto& mapping : connectTo) mappings_ = curl_slist_append(mappings_, mapping.c_str());
    easy_ = curl_easy_init();
    if (easy_ == nullptr) throw std::runtime_error("curl_easy_init failed");
    curl_easy_setopt(easy_, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy_, CURLOPT_CONNECT_TO, mappings_);
    curl_easy_setopt(easy_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy_, CURLOPT_WRITEFUNCTION, appendBody);
    curl_easy_setopt(easy_, CURLOPT_WRITEDATA, &body_);
    if (acceptCompression) curl_easy_setopt(easy_, CURLOPT_ACCEPT_ENCODING, "");
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

// The development server leaves Nagle's algorithm on and writes an answer's head and body
// separately, so on a reused connection the body waits for the client's delayed ACK (about
// 40 ms on Linux). That delay is the server's and would drown what is measured here, so
// before each sample every socket of this process (the server's included) gets TCP_NODELAY;
// a connection accepted during a sample needs none, as a fresh one acknowledges at once.
void disableNagleEverywhere() {
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator("/proc/self/fd", ec)) {
    const int fd = std::atoi(entry.path().filename().c_str());
    const int on = 1;
    // Anything that is not a TCP socket refuses, which is fine.
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
}

int cachedVideos(const std::string& documents) {
  const std::string store = (fs::path(documents) / kStoreFile).string();
  std::error_code ec;
  if (!fs::exists(store, ec) || fs::file_size(store, ec) == 0) return 0;
  int cached = 0;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 200);
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, "select video_filename from tn_adverts where use_flag = 1", -1, &st,
                           nullptr) == SQLITE_OK) {
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

// Per sample: the total and its stages, in microseconds.
struct Samples {
  std::vector<double> total, first, second, third;
  void add(double a, double b, double c) {
    total.push_back(a + b + c);
    first.push_back(a);
    second.push_back(b);
    third.push_back(c);
  }
};

struct Bench {
  tovani::linux::LinuxPlatform& lp;
  StampingPlayerFactory& players;
  StampingHttp& http;
  Host& host;
  std::string documents;

  // One showing, tovaniShow to play(), then closed the way the host's close would close it.
  void sdkShowing(Samples& into) {
    disableNagleEverywhere();
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
    const Stamps& at = *http.stamps;
    into.add(microseconds(at.requested - start), microseconds(at.answered - at.requested),
             microseconds(players.log->lastPlay - at.answered));
    tovani::mainViewer()->adClose_TNSDK();
  }

  void nullShowing(Samples& into, PlainFetch& fetch, const std::string& playable,
                   const std::string& cap) {
    const std::string store = (fs::path(documents) / kStoreFile).string();
    disableNagleEverywhere();
    const auto start = Steady::now();
    const std::string& body = fetch.get();
    const auto fetched = Steady::now();
    parseIntoNothing(body);
    const auto parsed = Steady::now();
    const int found = rawQuery(store, playable);
    rawQuery(store, cap);
    const auto end = Steady::now();
    if (found != 1) throw std::runtime_error("the playable-advert query found no row");
    into.add(microseconds(fetched - start), microseconds(parsed - fetched),
             microseconds(end - parsed));
  }
};

std::string vastUrlOf(const tovani::adserver::LoggedRequest& r) {
  return "http://" + r.host + r.path + (r.query.empty() ? "" : "?" + r.query);
}

void report(const char* name, const std::vector<double>& samples) {
  std::printf("  %-40s median %9.1f us   p95 %9.1f us\n", name, median(samples),
              percentile(samples, 0.95));
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
  const std::string httpPort = "127.0.0.1:" + std::to_string(server.httpPort());
  const std::string httpsPort = "127.0.0.1:" + std::to_string(server.httpsPort());
  for (const auto& name : {hosts.production, hosts.test, hosts.cdnHost}) {
    lo.http.connectTo.push_back(name + ":80:" + httpPort);
    lo.http.connectTo.push_back(name + ":443:" + httpsPort);
  }
  lo.http.caFile = server.caFile().string();
  lo.device.documentsDirectory = documents;
  lo.device.hardwareModel = "iPhone9,3";
  lo.device.osVersion = "10.3";
  lo.reachability.overrideFlags = 0x2;  // loopback counts as online whatever the routes say
  lo.logSink = [](const std::string&) {};
  auto lp = tovani::linux::makeLinuxPlatform(lo);
  // The SDK's own path is what is measured, not GStreamer's decoder start-up: see
  // StampingPlayer.
  auto players = std::make_shared<StampingPlayerFactory>();
  lp.platform->players = players;
  auto http = std::make_shared<StampingHttp>(lp.platform->http);
  lp.platform->http = http;

  auto host = std::make_shared<Host>();
  tovani::TovaniSDK::setPlatform(lp.platform);
  tovani::TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT");
  tovani::TovaniSDK::delegate(host);
  if (!lp.mainLoop->runUntil([&] { return cachedVideos(documents) == 1; }, 30.0)) {
    throw std::runtime_error("the store and the video were not in place within 30 s");
  }

  Bench bench{lp, *players, *http, *host, documents};
  Samples discarded;
  for (int i = 0; i < kWarmUpShowings; ++i) bench.sdkShowing(discarded);

  // The null pipeline asks for exactly what the SDK asked for.
  std::optional<tovani::adserver::LoggedRequest> vast;
  for (const auto& r : server.requests()) {
    if (r.route == "vast") vast = r;
  }
  if (!vast) throw std::runtime_error("the SDK sent no VAST request");
  PlainFetch fetch(vastUrlOf(*vast), lo.http.connectTo, true);
  // Not part of either pipeline: shows what the server's compression of the answer costs.
  PlainFetch uncompressed(vastUrlOf(*vast), lo.http.connectTo, false);
  const std::string playable =
      tovani::formatAt(tovani::sql::kSelectPlayableAdvert, {kAdId, kVideo});
  const std::string cap =
      tovani::formatAt(tovani::sql::kSelectRollingCapReached, {kAdId, "7", "1"});
  for (int i = 0; i < kWarmUpShowings; ++i) bench.nullShowing(discarded, fetch, playable, cap);

  Samples sdk;
  Samples null;
  std::vector<double> reference;
  for (int i = 0; i < showings; ++i) {
    disableNagleEverywhere();
    const auto start = Steady::now();
    uncompressed.get();
    reference.push_back(microseconds(Steady::now() - start));

    if (i % 2 == 0) {
      bench.sdkShowing(sdk);
      bench.nullShowing(null, fetch, playable, cap);
    } else {
      bench.nullShowing(null, fetch, playable, cap);
      bench.sdkShowing(sdk);
    }
  }

  std::printf("show path over loopback: %d showings each (after %d warm-up), VAST %zu bytes\n",
              showings, kWarmUpShowings, fetch.get().size());
  std::printf("SDK\n");
  report("tovaniShow -> play()", sdk.total);
  report("  tovaniShow -> request handed to Http", sdk.first);
  report("  request -> answer on the main queue", sdk.second);
  report("  answer -> play()", sdk.third);
  std::printf("null pipeline\n");
  report("curl GET + expat + S8 + S10", null.total);
  report("  curl GET (reused easy handle)", null.first);
  report("  expat parse, empty handlers", null.second);
  report("  S8 + S10, raw open/prepare/step/close", null.third);
  std::printf("reference, in neither pipeline\n");
  report("curl GET without asking for compression", reference);
  const double medianRatio = median(sdk.total) / median(null.total);
  const double p95Ratio = percentile(sdk.total, 0.95) / percentile(null.total, 0.95);
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
