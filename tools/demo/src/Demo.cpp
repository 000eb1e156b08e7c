#include "tovani/demo/Demo.hpp"

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "DemoClock.hpp"
#include "Expectation.hpp"
#include "FreshProcess.hpp"
#include "Inventory.hpp"
#include "ShowDriver.hpp"
#include "TimelinePicture.hpp"
#include "Why.hpp"
#include "tovani/JsonLinesInspector.hpp"
#include "tovani/TovaniSDK.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "tovani/linux/LinuxPlatform.hpp"

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

// The demo's window into the SDK: every event is kept per showing, handed to the driver of
// the showing under way and, when asked, written out as JSON lines.
class DemoInspector final : public TovaniInspector {
 public:
  void onEvent(const InspectorEvent& event) override {
    byShowing[event.showing].push_back(event);
    if (file) file->onEvent(event);
    if (listener) listener(event);
  }
  // Beacons of `showing` still waiting for their answer.
  int pendingBeacons(uint64_t showing) const {
    int pending = 0;
    auto it = byShowing.find(showing);
    if (it == byShowing.end()) return 0;
    for (const auto& e : it->second) {
      if (e.kind != InspectorEventKind::Beacon) continue;
      pending += e.outcome == "sent" ? 1 : -1;
    }
    return pending;
  }
  std::map<uint64_t, std::vector<InspectorEvent>> byShowing;
  std::function<void(const InspectorEvent&)> listener;
  std::unique_ptr<JsonLinesInspector> file;
};

std::string milliseconds(double seconds) {
  return std::to_string(static_cast<long>(std::lround(seconds * 1000))) + " ms";
}

// One line of the live timeline for an event; empty for the stages, which the driver words.
std::string liveLine(const InspectorEvent& e) {
  switch (e.kind) {
    case InspectorEventKind::ShowCheck:
      return e.outcome == "ended" ? "check: " + e.name + " ended the attempt: " + e.reason : "";
    case InspectorEventKind::AdRequest:
      if (e.name == "sent") return "request: ad request sent";
      if (e.name == "failed")
        return "request: failed after " + milliseconds(e.latencySeconds.value_or(0)) + ": " +
               e.error.value_or("");
      return "request: answered " + std::to_string(e.status.value_or(0)) + ", " +
             std::to_string(e.bytes.value_or(0)) + " bytes in " +
             milliseconds(e.latencySeconds.value_or(0));
    case InspectorEventKind::ParseFailure:
      return "answer: not readable: " + e.error.value_or("");
    case InspectorEventKind::Candidate:
      return "candidate: ad " + e.adId + " (" + e.videoFile + "): " + e.reason;
    case InspectorEventKind::Beacon:
      if (e.outcome == "sent") return "beacon: " + e.name + " sent";
      if (e.error) return "beacon: " + e.name + " failed: " + *e.error;
      return "beacon: " + e.name + " answered " + std::to_string(e.status.value_or(0)) + " in " +
             milliseconds(e.latencySeconds.value_or(0));
    case InspectorEventKind::EndCardLoad:
      return "endcard: page posted to " + e.url;
    case InspectorEventKind::Callback:
      return "callback: tovaniCallBack(" + std::to_string(e.result.value_or(-1)) + ")";
    case InspectorEventKind::Stage:
      return "";
  }
  return "";
}

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
  startAsFreshProcess();

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
  lo.http.beaconIdleTimeoutSeconds = options.beaconIdleTimeoutSeconds;
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
  auto inspector = std::make_shared<DemoInspector>();
  if (!options.eventsFile.empty())
    inspector->file = std::make_unique<JsonLinesInspector>(options.eventsFile);
  TovaniSDK::setPlatform(lp.platform);
  TovaniSDK::setInspector(inspector);
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
    inventory = readInventory();
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
    TovaniSDK::setInspector(nullptr);
    inspector->listener = nullptr;
    endAsFreshProcess();
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
      notReady += " (a failed video download is tried again at the next ad-list sync)";
    }
    if (options.inventoryOnly) return finish(false, notReady);
    out(notReady + "; showing anyway");
  } else {
    out("inventory ready: " + std::to_string(inventory.videosCached) + " videos cached");
  }
  if (options.inventoryOnly) return finish(true, "inventory ready");
  if (options.settleSeconds > 0) lp.mainLoop->runFor(options.settleSeconds);
  if (!options.faultsBeforeShow.empty()) server.setFaults(options.faultsBeforeShow);

  bool allAsExpected = true;
  std::string problems;
  for (int n = 0; n < options.showings; ++n) {
    ShowingReport showing;
    auto root = std::make_shared<View>();
    root->frame = {0, 0, lp.screen->boundsSize().width, lp.screen->boundsSize().height};
    const size_t callbacksBefore = host->results.size();
    const double startEpoch = wallNow();
    ShowDriver driver(root, lp, clock, options.actions, [&](const TimelineEvent& e) {
      showing.timeline.push_back(e);
      out(format("[%6.1fs] ", e.at) + e.lane + ": " + e.label);
    });
    const uint64_t number = static_cast<uint64_t>(n) + 1;
    // The live timeline and the picture come from the SDK's own account of the showing.
    std::map<std::string, size_t> beaconInTimeline;
    inspector->listener = [&](const InspectorEvent& e) {
      if (e.showing != number) return;
      driver.onEvent(e);
      const std::string line = liveLine(e);
      if (!line.empty()) out(format("[%6.1fs] ", driver.showingTime()) + line);
      if (e.kind != InspectorEventKind::Beacon) return;
      if (e.outcome == "sent") {
        beaconInTimeline[e.name] = showing.timeline.size();
        showing.timeline.push_back({driver.showingTime(), "beacon", e.name});
      } else if (auto it = beaconInTimeline.find(e.name); it != beaconInTimeline.end()) {
        showing.timeline[it->second].label +=
            e.error ? " (failed)" : " " + std::to_string(e.status.value_or(0));
      }
    };
    out("--- showing " + std::to_string(n + 1) + ": tovaniShow");
    lp.mainLoop->resetLongestTask();
    TovaniSDK::tovaniShow(root);
    lp.mainLoop->runUntil(
        [&] {
          driver.step();
          return host->results.size() > callbacksBefore;
        },
        options.showingTimeoutSeconds);
    // Let the last beacons of the showing arrive, and their answers (or time-outs) too.
    lp.mainLoop->runFor(0.3);
    showing.longestMainTaskSeconds = lp.mainLoop->longestTaskSeconds();
    lp.mainLoop->runUntil([&] { return inspector->pendingBeacons(number) <= 0; },
                          options.beaconIdleTimeoutSeconds + 2);
    inspector->listener = nullptr;
    if (host->results.size() > callbacksBefore) showing.result = host->results[callbacksBefore];
    showing.events = inspector->byShowing[number];
    showing.adId = driver.playedAdId();
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
    if (options.why && showing.result && (*showing.result == 1 || *showing.result == 2)) {
      showing.why = explainNoAd(showing.events, *showing.result);
      out("    why: " + showing.why);
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
