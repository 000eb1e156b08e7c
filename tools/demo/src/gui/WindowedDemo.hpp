#pragma once
#include <string>

namespace tovani::demo {

struct WindowedOptions {
  std::string scenarioFile;    // empty: the server's built-in scenario
  double speed = 1.0;          // media seconds per wall-clock second
  std::string screenshotsDir;  // set: show one ad by itself, write PNGs there, then quit
  bool verbose = false;        // the SDK's log lines on standard output
};

// The demo as a desktop host app: a window with a coin balance, a "Watch an ad for 10 coins"
// button and the last callback, over which the SDK shows its ad. Returns the exit status.
int runWindowed(const WindowedOptions& options);

}  // namespace tovani::demo
