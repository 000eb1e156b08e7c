// The cost of starting one showing: from TovaniSDK::tovaniShow to the player's play(), with
// the video already cached, against the development ad server on loopback. It is set
// against a null pipeline measured in the same run: the same VAST bytes fetched with a
// plain reused libcurl handle, parsed by expat into nothing, and the playable-advert and
// cap queries issued with raw SQLite on the same store file. Samples of the two alternate,
// so that drift of the machine weighs on both alike. A third series runs the SDK's showing
// with the JSON-lines inspector attached (writing to a file in the documents folder), so
// that what the inspector costs is read from the same run.
//
//   bench_show_path [showings [folder]]
//     showings  default 200, after a few discarded warm-up showings
//     folder    where the documents folder is made; default the system temporary folder
//               (the impression the SDK writes costs whatever a durable write costs there)
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
#include "show_path_ports.hpp"
#include "store/Statements.hpp"
#include "tovani/JsonLinesInspector.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "util/Text.hpp"
#include "viewer/tovaniViewer.hpp"

#pragma push_macro("linux")
#undef linux

namespace {

namespace fs = std::filesystem;
using show_path::Stamps;
using show_path::Steady;

constexpr int kDefaultShowings = 200;
constexpr int kWarmUpShowings = 5;
constexpr double kMedianTarget = 1.3;
constexpr double kP95Target = 1.5;
constexpr const char* kStoreFile = "tnad_005.data";
constexpr const char* kAdId = "2001";
constexpr const char* kVideo = "video_10s.mp4";

// One advert, not skippable, without a frequency cap and without an end card: the path
// measured is request, parse, store look-up, file check, impression and playback set-up,
// and nothing that only a skippable ad adds (its countdown images are a blocking fetch).
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

double microseconds(Steady::duration d) {
  return std::chrono::duration<double, std::micro>(d).count();
}

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

// Open, prepare, step to the end, close: one statement the plainest way. Returns the rows.
int rawStatement(const std::string& path, const std::string& sql) {
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

// ---- environment ----

bool videoCached(const std::string& documents) {
  const std::string store = (fs::path(documents) / kStoreFile).string();
  std::error_code ec;
  if (!fs::exists(store, ec) || fs::file_size(store, ec) == 0) return false;
  bool cached = false;
  sqlite3* db = nullptr;
  if (sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_busy_timeout(db, 200);
    sqlite3_stmt* st = nullptr;
    const char* sql = "select count(*) from tn_adverts where use_flag = 1";
    if (sqlite3_prepare_v2(db, sql, -1, &st, nullptr) == SQLITE_OK &&
        sqlite3_step(st) == SQLITE_ROW) {
      cached = sqlite3_column_int(st, 0) == 1 && fs::exists(fs::path(documents) / kVideo, ec);
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  return cached;
}

// ---- statistics ----

struct Series {
  const char* name;
  std::vector<double> samples;  // microseconds
};

double median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  const size_t n = samples.size();
  return n % 2 == 1 ? samples[n / 2] : (samples[n / 2 - 1] + samples[n / 2]) / 2;
}

// Nearest rank: the smallest sample with at least `share` of all samples at or below it.
double percentile(std::vector<double> samples, double share) {
  std::sort(samples.begin(), samples.end());
  const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(samples.size())));
  return samples[std::clamp<size_t>(rank, 1, samples.size()) - 1];
}

void report(const char* title, const std::vector<Series>& series) {
  std::printf("%s\n", title);
  for (const auto& s : series) {
    std::printf("  %-46s median %9.1f us   p95 %9.1f us\n", s.name, median(s.samples),
                percentile(s.samples, 0.95));
  }
}

// ---- the run ----

struct Run {
  tovani::linux::LinuxPlatform& lp;
  Stamps& at;
  Host& host;
  std::string store;

  // tovaniShow to play(), then the showing closed as the host's close button closes it.
  void sdkShowing(std::vector<Series>* into) {
    auto root = std::make_shared<tovani::View>();
    root->frame = {0, 0, 375, 667};
    const int playsBefore = at.plays;
    const size_t callbacksBefore = host.results.size();
    const auto start = Steady::now();
    tovani::TovaniSDK::tovaniShow(root);
    lp.mainLoop->runUntil(
        [&] { return at.plays > playsBefore || host.results.size() > callbacksBefore; }, 10.0);
    if (at.plays == playsBefore) {
      throw std::runtime_error(host.results.size() > callbacksBefore
                                   ? "the showing ended with result " +
                                         std::to_string(host.results.back()) + " instead of playing"
                                   : "the showing did not start within 10 s");
    }
    if (!(at.answered <= at.counted && at.counted <= at.played)) {
      throw std::runtime_error("the impression was not stored between answer and play()");
    }
    tovani::mainViewer()->adClose_TNSDK();
    if (into == nullptr) return;
    for (auto [series, span] : {std::pair{0, at.played - start},
                                {1, at.requested - start},
                                {2, at.answered - at.requested},
                                {3, at.counted - at.answered},
                                {4, at.played - at.counted}}) {
      (*into)[static_cast<size_t>(series)].samples.push_back(microseconds(span));
    }
  }

  void nullShowing(std::vector<Series>* into, PlainFetch& fetch, const std::string& playable,
                   const std::string& cap) {
    const auto start = Steady::now();
    const std::string& body = fetch.get();
    const auto fetched = Steady::now();
    parseIntoNothing(body);
    const auto parsed = Steady::now();
    const int found = rawStatement(store, playable);
    rawStatement(store, cap);
    const auto end = Steady::now();
    if (found != 1) throw std::runtime_error("the playable-advert query found no row");
    if (into == nullptr) return;
    for (auto [series, span] : {std::pair{0, end - start},
                                {1, fetched - start},
                                {2, parsed - fetched},
                                {3, end - parsed}}) {
      (*into)[static_cast<size_t>(series)].samples.push_back(microseconds(span));
    }
  }
};

int run(int showings, const fs::path& parent) {
  tovani::adserver::Options serverOptions;
  serverOptions.scenarioText = kScenario;
  tovani::adserver::AdServer server(serverOptions);
  server.start();

  std::string pattern = (parent / "tovani-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no documents folder");
  struct RemoveFolder {
    std::string path;
    ~RemoveFolder() {
      std::error_code ec;
      fs::remove_all(path, ec);
    }
  } const documents{pattern};

  tovani::linux::LinuxPlatformOptions lo;
  lo.mainContext = tovani::linux::MainContextChoice::Private;
  const auto& hosts = server.hosts();
  for (const auto& name : {hosts.production, hosts.test, hosts.cdnHost}) {
    lo.http.connectTo.push_back(name + ":80:127.0.0.1:" + std::to_string(server.httpPort()));
    lo.http.connectTo.push_back(name + ":443:127.0.0.1:" + std::to_string(server.httpsPort()));
  }
  lo.http.caFile = server.caFile().string();
  lo.device.documentsDirectory = documents.path;
  lo.device.hardwareModel = "iPhone9,3";
  lo.device.osVersion = "10.3";
  lo.reachability.overrideFlags = 0x2;  // loopback counts as online whatever the routes say
  lo.logSink = [](const std::string&) {};
  auto lp = tovani::linux::makeLinuxPlatform(lo);
  auto stamps = std::make_shared<Stamps>();
  // A player that only notes play(): the SDK's path is measured, not GStreamer's start-up.
  lp.platform->players = std::make_shared<show_path::StampingPlayerFactory>(stamps);
  lp.platform->http = std::make_shared<show_path::StampingHttp>(lp.platform->http, stamps);
  lp.platform->application =
      std::make_shared<show_path::StampingApplication>(lp.application, stamps);

  auto host = std::make_shared<Host>();
  // The SDK lets go of the platform before the platform goes, also when a step fails.
  struct ForgetSdk {
    ~ForgetSdk() {
      tovani::TovaniSDK::setPlatform(nullptr);
      tovani::resetFacadeForTesting();
    }
  } const forgetSdk;
  tovani::TovaniSDK::setPlatform(lp.platform);
  tovani::TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT");
  tovani::TovaniSDK::delegate(host);
  if (!lp.mainLoop->runUntil([&] { return videoCached(documents.path); }, 30.0)) {
    throw std::runtime_error("the store and the video were not in place within 30 s");
  }

  Run bench{lp, *stamps, *host, (fs::path(documents.path) / kStoreFile).string()};
  for (int i = 0; i < kWarmUpShowings; ++i) bench.sdkShowing(nullptr);

  // The null pipeline asks for exactly what the SDK asked for.
  std::optional<tovani::adserver::LoggedRequest> vast;
  for (const auto& r : server.requests()) {
    if (r.route == "vast") vast = r;
  }
  if (!vast) throw std::runtime_error("the SDK sent no VAST request");
  const std::string url = "http://" + vast->host + vast->path + "?" + vast->query;
  PlainFetch fetch(url, lo.http.connectTo, true);
  const std::string playable =
      tovani::formatAt(tovani::sql::kSelectPlayableAdvert, {kAdId, kVideo});
  const std::string cap =
      tovani::formatAt(tovani::sql::kSelectRollingCapReached, {kAdId, "7", "1"});
  for (int i = 0; i < kWarmUpShowings; ++i) bench.nullShowing(nullptr, fetch, playable, cap);

  // In neither pipeline: what the server's compression and a durable impression cost here.
  PlainFetch uncompressed(url, lo.http.connectTo, false);
  const std::string impression = tovani::formatAt(tovani::sql::kInsertImpression, {kAdId});

  std::vector<Series> sdk = {{"tovaniShow -> play()", {}},
                             {"  tovaniShow -> request handed to Http", {}},
                             {"  request -> answer on the main queue", {}},
                             {"  answer -> impression stored", {}},
                             {"  impression stored -> play()", {}}};
  std::vector<Series> null = {{"curl GET + expat + S8 + S10", {}},
                              {"  curl GET, reused easy handle", {}},
                              {"  expat parse, empty handlers", {}},
                              {"  S8 + S10, raw open/prepare/step/close", {}}};
  std::vector<Series> inspected = {{"tovaniShow -> play(), JSON inspector attached", {}},
                                   {"  tovaniShow -> request handed to Http", {}},
                                   {"  request -> answer on the main queue", {}},
                                   {"  answer -> impression stored", {}},
                                   {"  impression stored -> play()", {}}};
  const auto inspector =
      std::make_shared<tovani::JsonLinesInspector>(documents.path + "/inspector.jsonl");
  const auto inspectedShowing = [&] {
    tovani::TovaniSDK::setInspector(inspector);
    bench.sdkShowing(&inspected);
    tovani::TovaniSDK::setInspector(nullptr);
  };
  std::vector<Series> reference = {{"curl GET without asking for compression", {}},
                                   {"S11 impression insert, raw", {}}};
  for (int i = 0; i < showings; ++i) {
    if (i % 2 == 0) {
      bench.sdkShowing(&sdk);
      inspectedShowing();
      bench.nullShowing(&null, fetch, playable, cap);
    } else {
      bench.nullShowing(&null, fetch, playable, cap);
      inspectedShowing();
      bench.sdkShowing(&sdk);
    }
    const auto start = Steady::now();
    uncompressed.get();
    const auto fetched = Steady::now();
    rawStatement(bench.store, impression);
    reference[0].samples.push_back(microseconds(fetched - start));
    reference[1].samples.push_back(microseconds(Steady::now() - fetched));
  }

  std::printf(
      "show path over loopback: %d showings each after %d warm-up; VAST %zu bytes; "
      "documents in %s\n",
      showings, kWarmUpShowings, fetch.get().size(), parent.c_str());
  report("SDK", sdk);
  report("SDK with the JSON-lines inspector", inspected);
  report("null pipeline", null);
  report("reference, in neither pipeline", reference);
  const double medianRatio = median(sdk[0].samples) / median(null[0].samples);
  const double p95Ratio = percentile(sdk[0].samples, 0.95) / percentile(null[0].samples, 0.95);
  std::printf("SDK / null: median %.2f (target <= %.1f: %s), p95 %.2f (target <= %.1f: %s)\n",
              medianRatio, kMedianTarget, medianRatio <= kMedianTarget ? "met" : "MISSED", p95Ratio,
              kP95Target, p95Ratio <= kP95Target ? "met" : "MISSED");
  const double inspectedMedian = median(inspected[0].samples) / median(sdk[0].samples);
  const double inspectedP95 =
      percentile(inspected[0].samples, 0.95) / percentile(sdk[0].samples, 0.95);
  std::printf("SDK with inspector / without: median %.3f (target <= 1.05: %s), p95 %.3f\n",
              inspectedMedian, inspectedMedian <= 1.05 ? "met" : "MISSED", inspectedP95);
  // The design writes the impression before playing; the null pipeline has no write. How
  // far the SDK is from the null pipeline plus that one write, sample by sample:
  std::vector<double> withInsert;
  for (size_t i = 0; i < null[0].samples.size(); ++i) {
    withInsert.push_back(null[0].samples[i] + reference[1].samples[i]);
  }
  std::printf("SDK / (null + raw S11 insert): median %.2f, p95 %.2f\n",
              median(sdk[0].samples) / median(withInsert),
              percentile(sdk[0].samples, 0.95) / percentile(withInsert, 0.95));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int showings = argc > 1 ? std::max(1, std::atoi(argv[1])) : kDefaultShowings;
  const fs::path parent = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path();
  try {
    return run(showings, parent);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_show_path: %s\n", e.what());
    return 1;
  }
}

#pragma pop_macro("linux")
