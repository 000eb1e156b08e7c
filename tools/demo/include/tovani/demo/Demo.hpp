#pragma once
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tovani/TovaniInspector.hpp"

// The demo host: runs the SDK as an app would, against the development ad server started
// in-process on loopback, and reports what the host and the server saw.
namespace tovani::demo {

// What the viewer of the ad does, in media seconds of the showing.
struct ViewerActions {
  std::optional<double> skipAt;        // tap the skip button once it is active at or after N s
  std::optional<double> actionAt;      // tap the action button once it shows at or after N s
  std::optional<double> backgroundAt;  // leave the app at N s ...
  double backgroundFor = 0;            // ... and come back after this many seconds
  // The end-card link to follow: close, reload (then close), install (then close), tel, geo,
  // outbound, inhost (then close), none (stay until the time limit).
  std::string endCardLink = "close";
};

struct DemoOptions {
  std::string scenarioFile;         // empty: the server's built-in default scenario
  std::optional<std::string> adId;  // serve this ad first
  double speed = 4.0;               // media seconds per wall-clock second
  ViewerActions actions;
  int showings = 1;
  bool inventoryOnly = false;
  // Server faults (the ad server's fault-switch JSON) applied before start-up / before the
  // first showing.
  std::string faultsAtStart;
  std::string faultsBeforeShow;
  // Seconds to keep running after the inventory is ready, before those faults and the first
  // showing, so that the SDK's background work after start-up has finished.
  double settleSeconds = 0;
  bool devType = false;
  std::string mediaCode = "DEMO_MEDIA";
  std::string slotCode = "DEMO_SLOT";
  std::string documentsDirectory;  // empty: a fresh folder, removed afterwards (a cold start)
  double inventoryTimeoutSeconds = 30;
  double showingTimeoutSeconds = 120;    // wall-clock seconds per showing
  std::string timelineFile;              // .svg or .html; empty: none
  bool verbose = false;                  // SDK log lines too
  bool progressOnTerminal = false;       // redraw one progress line instead of printing lines
  bool why = false;                      // explain a showing that ended with 1 or 2
  std::string eventsFile;                // also write the inspector's events here (JSON lines)
  double beaconIdleTimeoutSeconds = 10;  // the Linux adapter's beacon idle time-out
  std::function<void(const std::string&)> out;  // every line of output; empty: stdout
};

struct TimelineEvent {
  double at = 0;     // seconds since tovaniShow, media-time scale
  std::string lane;  // "beacon", "stage", "countdown", "result", "action", "endcard"
  std::string label;
};

struct Beacon {
  double at = 0;  // seconds since tovaniShow (wall clock × speed)
  std::string method;
  std::string route;
  std::string path;
  std::string query;
  std::string body;
};

struct ShowingReport {
  std::optional<int32_t> result;    // the callback, if one came
  std::optional<int32_t> expected;  // what the options predict, when they predict one
  std::string adId;                 // the ad that played, if one did
  bool skippable = false;
  double duration = 0;
  std::vector<TimelineEvent> timeline;
  std::vector<Beacon> requests;         // every request the server received during the showing
  std::vector<std::string> openedUrls;  // URLs handed to the host to open
  double longestMainTaskSeconds = 0;    // the longest the host's main thread was held
  std::vector<InspectorEvent> events;   // what the SDK's inspector reported for this showing
  std::string why;                      // the explanation of a 1 or a 2 (with `why`)
};

struct DemoReport {
  bool ok = false;
  std::string message;             // why not ok, or a one-line summary
  std::vector<int32_t> callbacks;  // every callback in order, start-up ones included
  bool inventoryReady = false;
  int videosCached = 0;
  std::vector<ShowingReport> showings;
  std::vector<Beacon> allRequests;       // everything the server received
  double longestMainTaskSeconds = 0;     // the longest the SDK held its main thread at once
  double longestMainTaskCpuSeconds = 0;  // the same in processor time
};

DemoReport runDemo(const DemoOptions& options);

}  // namespace tovani::demo
