// The cost of TovaniSDK::readiness() on the main thread with a full store: 1,000 adverts,
// 200 of them cached as files in the documents folder, a year of impressions, and 50 ads
// whose frequency rule was seen in an answer.
//
//   bench_readiness [calls [folder]]
//     calls   default 500, after 20 discarded warm-up calls
//     folder  where the documents folder is made; default the system temporary folder
#include <sqlite3.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "sdk/FacadeState.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "viewer/tovaniViewer.hpp"

#pragma push_macro("linux")
#undef linux

namespace {

namespace fs = std::filesystem;
using Steady = std::chrono::steady_clock;

constexpr int kAdverts = 1000;
constexpr int kCached = 200;
constexpr int kRulesSeen = 50;
constexpr int kWarmUp = 20;

void exec(sqlite3* db, const std::string& sql) {
  char* error = nullptr;
  if (sqlite3_exec(db, sql.c_str(), nullptr, nullptr, &error) != SQLITE_OK) {
    const std::string message = error ? error : "unknown";
    sqlite3_free(error);
    throw std::runtime_error("store set-up failed: " + message);
  }
}

void makeStore(const fs::path& documents) {
  std::ifstream schema(std::string(TOVANI_SOURCE_DIR) + "/schema/tovani_store.sql");
  std::stringstream text;
  text << schema.rdbuf();
  sqlite3* db = nullptr;
  if (sqlite3_open((documents / "tnad_005.data").c_str(), &db) != SQLITE_OK)
    throw std::runtime_error("cannot make the store");
  exec(db, text.str());
  exec(db, "begin");
  for (int i = 0; i < kAdverts; ++i) {
    const std::string id = std::to_string(10000 + i);
    const std::string file = "video_" + id + ".mp4";
    const bool cached = i < kCached;
    exec(db,
         "insert into tn_adverts(ads_no, slot, sources_value, video_filename, use_flag) "
         "values('" +
             id + "', 'S', 'https://cdn.example/video/" + file + "', '" + file + "', " +
             (cached ? "1" : "0") + ")");
    if (cached) std::ofstream(documents / file) << std::string(4096, 'v');
    // A few impressions per ad, spread over the year.
    for (int k = 0; k < 3; ++k) {
      exec(db, "insert into tn_ads_freq(ads_no, reg_date) values('" + id + "', datetime('now', '-" +
                   std::to_string((i * 7 + k * 50) % 365) + " day'))");
    }
  }
  exec(db, "commit");
  sqlite3_close(db);
}

double percentile(std::vector<double> samples, double share) {
  std::sort(samples.begin(), samples.end());
  const auto rank = static_cast<size_t>(std::ceil(share * static_cast<double>(samples.size())));
  return samples[std::clamp<size_t>(rank, 1, samples.size()) - 1];
}

int run(int calls, const fs::path& parent) {
  std::string pattern = (parent / "tovani-readiness-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no documents folder");
  struct RemoveFolder {
    std::string path;
    ~RemoveFolder() {
      std::error_code ec;
      fs::remove_all(path, ec);
    }
  } const documents{pattern};
  makeStore(documents.path);

  tovani::linux::LinuxPlatformOptions lo;
  lo.mainContext = tovani::linux::MainContextChoice::Private;
  lo.device.documentsDirectory = documents.path;
  lo.reachability.overrideFlags = 0;  // offline: start-up asks nobody
  lo.logSink = [](const std::string&) {};
  auto lp = tovani::linux::makeLinuxPlatform(lo);
  struct ForgetSdk {
    ~ForgetSdk() {
      tovani::TovaniSDK::setPlatform(nullptr);
      tovani::resetFacadeForTesting();
    }
  } const forgetSdk;
  tovani::TovaniSDK::setPlatform(lp.platform);
  tovani::TovaniSDK::init("BENCH_MEDIA", "BENCH_SLOT");
  lp.mainLoop->runFor(0.1);
  // As if answers carrying these rules had been read in this process.
  auto& rules = tovani::mainViewer()->inspection.lastRuleByAd;
  for (int i = 0; i < kRulesSeen; ++i) {
    rules[std::to_string(10000 + i * 20)] = i % 2 == 0 ? "p|7|2" : "d|20260101|20261231|3";
  }

  tovani::Readiness last;
  for (int i = 0; i < kWarmUp; ++i) last = tovani::TovaniSDK::readiness();
  if (last.advertCount != kAdverts || last.videosCached != kCached) {
    throw std::runtime_error("readiness saw " + std::to_string(last.advertCount) + " adverts, " +
                             std::to_string(last.videosCached) + " cached: " + last.problem);
  }
  // Wall time is what the main thread waits; the thread's CPU time is what the call costs
  // on a machine where it is not waiting for a core.
  const auto cpuMs = [] {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e3 + static_cast<double>(t.tv_nsec) / 1e6;
  };
  std::vector<double> ms, cpu;
  for (int i = 0; i < calls; ++i) {
    const auto start = Steady::now();
    const double cpuStart = cpuMs();
    last = tovani::TovaniSDK::readiness();
    cpu.push_back(cpuMs() - cpuStart);
    ms.push_back(std::chrono::duration<double, std::milli>(Steady::now() - start).count());
  }
  const double median = percentile(ms, 0.5), p95 = percentile(ms, 0.95);
  std::printf("readiness(): %d adverts, %d cached files, %d rules seen; %d calls in %s\n", kAdverts,
              kCached, kRulesSeen, calls, parent.c_str());
  std::printf("  wall  median %.3f ms   p95 %.3f ms   (target median < 5 ms: %s)\n", median, p95,
              median < 5 ? "met" : "MISSED");
  std::printf("  cpu   median %.3f ms   p95 %.3f ms\n", percentile(cpu, 0.5),
              percentile(cpu, 0.95));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int calls = argc > 1 ? std::max(1, std::atoi(argv[1])) : 500;
  const fs::path parent = argc > 2 ? fs::path(argv[2]) : fs::temp_directory_path();
  try {
    return run(calls, parent);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "bench_readiness: %s\n", e.what());
    return 1;
  }
}

#pragma pop_macro("linux")
