#include "tovani/demo/Demo.hpp"

#include <sqlite3.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "DemoClock.hpp"
#include "Expectation.hpp"
#include "Inventory.hpp"
#include "ShowDriver.hpp"
#include "TimelinePicture.hpp"
#include "sdk/FacadeState.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "util/NotificationCenter.hpp"
#include "viewer/ProcessState.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::demo {

namespace {

namespace fs = std::filesystem;

class Host final : public TovaniDelegate {
 public:
  void tovaniCallBack(int32_t result) override { results.push_back(result); }
  std::vector<int32_t> results;
};

std::string format(const char* fmt, double a) {
  char text[64];
  snprintf(text, sizeof text, fmt, a);
  return text;
}

// The scenario text with the chosen ad served first.
std::string scenarioWithAdFirst(const DemoOptions& options) {
  std::string text;
  if (!options.scenarioFile.empty()) {
    std::ifstream in(options.scenarioFile);
    if (!in) throw std::runtime_error("cannot read the scenario file " + options.scenarioFile);
    std::stringstream s;
    s << in.rdbuf();
    text = s.str();
  }
  if (!options.adId) return text;
  if (text.empty()) {
    std::ifstream in(std::string(TOVANI_DEMO_SOURCE_DIR) +
                     "/tools/adserver/scenarios/default.json");
    std::stringstream s;
    s << in.rdbuf();
    text = s.str();
  }
  auto scenario = nlohmann::json::parse(text);
  auto& vast = scenario["vast"];
  for (size_t i = 0; i < vast.size(); ++i) {
    if (vast[i].value("id", nlohmann::json()).dump() == *options.adId ||
        (vast[i]["id"].is_string() && vast[i]["id"].get<std::string>() == *options.adId)) {
      auto chosen = vast[i];
      vast.erase(vast.begin() + static_cast<long>(i));
      vast.insert(vast.begin(), chosen);
      return scenario.dump();
    }
  }
  throw std::runtime_error("the scenario has no ad " + *options.adId);
}

double wallNow() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string lastImpression(const std::string& documents) {
  sqlite3* db = nullptr;
  std::string id;
  const auto store = (fs::path(documents) / "tnad_005.data").string();
  if (sqlite3_open_v2(store.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
    sqlite3_stmt* st = nullptr;
    if (sqlite3_prepare_v2(db, "select ads_no from tn_ads_freq order by rowid desc limit 1", -1,
                           &st, nullptr) == SQLITE_OK &&
        sqlite3_step(st) == SQLITE_ROW && sqlite3_column_text(st, 0)) {
      id = reinterpret_cast<const char*>(sqlite3_column_text(st, 0));
    }
    sqlite3_finalize(st);
  }
  sqlite3_close(db);
  return id;
}

Beacon toBeacon(const adserver::LoggedRequest& r, double at) {
  return Beacon{at, r.method, r.route, r.path, r.query, r.body};
}

std::string resultName(int32_t r) {
  switch (r) {
    case 0:
      return "0 (reward point reached)";
    case 1:
      return "1 (no ad ready)";
    case 2:
      return "2 (failed / not rewarded)";
    case 3:
      return "3 (left before the reward point)";
    default:
      return std::to_string(r);
  }
}

}  // namespace

DemoReport runDemo(const DemoOptions& options) {
  DemoReport report;
  auto out = [&](const std::string& line) {
    if (options.out) {
      options.out(line);
    } else {
      std::cout << line << std::endl;
    }
  };

  // A fresh SDK, as in a process that starts now.
  resetFacadeForTesting();
  resetProcessState();
  NotificationCenter::defaultCenter().reset();

  adserver::Options serverOptions;
  serverOptions.scenarioText = scenarioWithAdFirst(options);
  if (serverOptions.scenarioText.empty()) serverOptions.scenarioFile = options.scenarioFile;
  adserver::AdServer server(serverOptions);
  server.start();
  if (!options.faultsAtStart.empty()) server.setFaults(options.faultsAtStart);
  const auto& hosts = server.hosts();
  out("ad server: scenario \"" + server.scenarioName() +
      "\", http 127.0.0.1:" + std::to_string(server.httpPort()) + ", https 127.0.0.1:" +
      std::to_string(server.httpsPort()) + ", CA " + server.caFile().string());

  std::string documents = options.documentsDirectory;
  bool removeDocuments = false;
  if (documents.empty()) {
    std::string pattern = (fs::temp_directory_path() / "tovani-demo-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("cannot make a documents folder");
    documents = pattern;
    removeDocuments = true;
  }

  linux::LinuxPlatformOptions lo;
  lo.mainContext = linux::MainContextChoice::Private;
  const std::string http = "127.0.0.1:" + std::to_string(server.httpPort());
  const std::string https = "127.0.0.1:" + std::to_string(server.httpsPort());
  for (const auto& host : {hosts.production, hosts.test, hosts.cdnHost}) {
    lo.http.connectTo.push_back(host + ":80:" + http);
    lo.http.connectTo.push_back(host + ":443:" + https);
  }
  lo.http.caFile = server.caFile().string();
  lo.player.playbackRate = options.speed;
  lo.device.documentsDirectory = documents;
  lo.device.hardwareModel = "iPhone9,3";
  lo.device.osVersion = "10.3";
  // The ad server is on loopback, so the demo counts as online whatever the machine's
  // routes say (a build machine may have no default route at all).
  lo.reachability.overrideFlags = 0x2;
  std::vector<std::string> opened;
  lo.application.bundleName = "tovani-demo";
  lo.application.canOpenURL = [](const std::string& url) {
    return url.rfind("http:", 0) == 0 || url.rfind("https:", 0) == 0;
  };
  lo.application.openURL = [&](const std::string& url) {
    opened.push_back(url);
    out("host: asked to open " + url);
  };
  lo.logSink = [&](const std::string& line) {
    if (options.verbose) out("[sdk] " + line);
  };
  auto lp = linux::makeLinuxPlatform(lo);
  auto clock = std::make_shared<DemoClock>();
  lp.platform->clock = clock;

  auto host = std::make_shared<Host>();
  TovaniSDK::setPlatform(lp.platform);
  TovaniSDK::setDevType(options.devType);
  TovaniSDK::init(options.mediaCode, options.slotCode,
                  TovaniSDK::CategoryList{std::string(TovaniCategory::CASUAL),
                                          std::string(TovaniCategory::MUSIC)});
  TovaniSDK::delegate(host);

  // Inventory: store file, ad list, then every video.
  out("waiting for the store, the ad list and the videos ...");
  InventoryState inventory;
  std::string lastProgress;
  auto progress = [&] {
    inventory = readInventory(documents);
    std::string line = inventory.storePresent
                           ? "inventory: " + std::to_string(inventory.videosCached) + "/" +
                                 std::to_string(inventory.adverts) + " videos cached"
                           : "inventory: downloading the store";
    if (line != lastProgress) {
      lastProgress = line;
      if (options.progressOnTerminal) {
        std::cout << "\r" << line << "      " << std::flush;
      } else {
        out(line);
      }
    }
    return inventory.ready() || !host->results.empty();
  };
  lp.mainLoop->runUntil(progress, options.inventoryTimeoutSeconds);
  if (options.progressOnTerminal) std::cout << std::endl;
  report.inventoryReady = inventory.ready();
  report.videosCached = inventory.videosCached;
  if (!host->results.empty())
    out("host: callback during start-up: " + resultName(host->results.back()));

  auto finish = [&](bool ok, const std::string& message) {
    report.ok = ok;
    report.message = message;
    report.callbacks = host->results;
    report.longestMainTaskSeconds = lp.mainLoop->longestTaskSeconds();
    report.longestMainTaskCpuSeconds = lp.mainLoop->longestTaskCpuSeconds();
    for (const auto& r : server.requests()) report.allRequests.push_back(toBeacon(r, r.time));
    out(std::string(ok ? "OK: " : "FAILED: ") + message);
    TovaniSDK::setPlatform(nullptr);
    resetFacadeForTesting();
    resetProcessState();
    NotificationCenter::defaultCenter().reset();
    if (removeDocuments) {
      std::error_code ec;
      fs::remove_all(documents, ec);
    }
    return report;
  };

  std::string notReady;
  if (!report.inventoryReady) {
    notReady =
        "no ad became ready within " + format("%.0f", options.inventoryTimeoutSeconds) + " s";
    if (!inventory.storePresent) {
      notReady += ": the store file never arrived";
    } else {
      notReady += ": " + std::to_string(inventory.videosCached) + " of " +
                  std::to_string(inventory.adverts) + " videos cached";
    }
    for (const auto& r : server.requests()) {
      if (r.route == "track") continue;
      if (r.status != 200) notReady += "; " + r.route + " answered " + std::to_string(r.status);
    }
    if (inventory.storePresent && inventory.videosCached < inventory.adverts) {
      notReady += " (a failed video download stops the queue until the next ad-list sync)";
    }
    if (options.inventoryOnly) return finish(false, notReady);
    out(notReady + "; showing anyway");
  } else {
    out("inventory ready: " + std::to_string(inventory.videosCached) + " videos cached");
  }
  if (options.inventoryOnly) return finish(true, "inventory ready");
  if (!options.faultsBeforeShow.empty()) server.setFaults(options.faultsBeforeShow);

  bool allAsExpected = true;
  std::string problems;
  for (int n = 0; n < options.showings; ++n) {
    ShowingReport showing;
    auto root = std::make_shared<View>();
    root->frame = {0, 0, lp.screen->boundsSize().width, lp.screen->boundsSize().height};
    const size_t callbacksBefore = host->results.size();
    const double startEpoch = wallNow();
    auto viewer = TovaniSDK::sharedInstance()->getMainViewer();
    ShowDriver driver(viewer, lp, clock, options.actions, [&](const TimelineEvent& e) {
      showing.timeline.push_back(e);
      out(format("[%6.1fs] ", e.at) + e.lane + ": " + e.label);
    });
    size_t seenRequests = server.requests().size();
    out("--- showing " + std::to_string(n + 1) + ": tovaniShow");
    TovaniSDK::tovaniShow(root);
    lp.mainLoop->runUntil(
        [&] {
          driver.step();
          const auto requests = server.requests();
          for (size_t i = seenRequests; i < requests.size(); ++i) {
            const auto& r = requests[i];
            out(format("[%6.1fs] ", driver.showingTimeAt(r.epoch)) + "server: " + r.route + " " +
                r.method + " " + r.path + (r.query.empty() ? "" : "?" + r.query.substr(0, 60)));
          }
          seenRequests = requests.size();
          return host->results.size() > callbacksBefore;
        },
        options.showingTimeoutSeconds);
    // Let the last beacons of the showing arrive.
    lp.mainLoop->runFor(0.3);
    if (host->results.size() > callbacksBefore) showing.result = host->results[callbacksBefore];
    showing.adId = lastImpression(documents);
    showing.skippable = driver.skippable();
    showing.duration = driver.duration();
    showing.openedUrls = opened;
    for (const auto& r : server.requests()) {
      if (r.epoch >= startEpoch - 0.05)
        showing.requests.push_back(toBeacon(r, driver.showingTimeAt(r.epoch)));
    }
    if (showing.result) {
      showing.timeline.push_back(
          {driver.showingTime(), "result", "callback " + std::to_string(*showing.result)});
    }
    if (!driver.problem().empty()) problems += "; " + driver.problem();
    if (driver.duration() > 0)
      showing.expected = expectedResult(options.actions, showing.skippable, showing.duration);

    out("--- showing " + std::to_string(n + 1) + " summary: ad " +
        (showing.adId.empty() ? std::string("none") : showing.adId) +
        (showing.skippable ? ", skippable" : ", not skippable") +
        format(", %.1f s", showing.duration) + ", result " +
        (showing.result ? resultName(*showing.result) : std::string("none (timed out)")));
    int beacons = 0;
    for (const auto& b : showing.requests) beacons += b.route == "track";
    out("    beacons received by the server: " + std::to_string(beacons));
    if (showing.expected) {
      out("    expected result " + resultName(*showing.expected));
      if (!showing.result || *showing.result != *showing.expected) allAsExpected = false;
    } else if (!showing.result) {
      allAsExpected = false;
    }
    if (!options.timelineFile.empty() && n == 0) {
      if (writeTimelinePicture(showing, "tovani showing: ad " + showing.adId,
                               options.timelineFile)) {
        out("    timeline picture: " + options.timelineFile);
      }
    }
    report.showings.push_back(std::move(showing));
  }
  if (!notReady.empty()) return finish(false, notReady);
  return finish(allAsExpected && problems.empty(),
                allAsExpected ? "every showing ended as expected" + problems
                              : "a showing did not end as expected" + problems);
}

}  // namespace tovani::demo

#pragma pop_macro("linux")
