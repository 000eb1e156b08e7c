// tovani-demo: a host app in a terminal. Starts the development ad server on loopback,
// points the Linux platform at it and runs whole showings as a user would see them.
#include <unistd.h>

#include <cxxopts.hpp>
#include <iostream>

#include "tovani/demo/Demo.hpp"
#ifdef TOVANI_DEMO_WINDOWED
#include "gui/DesktopSession.hpp"
#include "gui/WindowedDemo.hpp"
#endif

int main(int argc, char** argv) {
  cxxopts::Options cli("tovani-demo", "Runs a whole ad showing against the bundled ad server");
  // clang-format off
  cli.add_options()
    ("scenario", "scenario file (JSON); default: the built-in scenario", cxxopts::value<std::string>())
    ("ad", "serve this ad id first", cxxopts::value<std::string>())
    ("speed", "media seconds per wall-clock second", cxxopts::value<double>()->default_value("4"))
    ("skip-at", "tap skip at N s (once it is active)", cxxopts::value<double>())
    ("action-at", "tap the action button at N s", cxxopts::value<double>())
    ("background-at", "leave the app at N s", cxxopts::value<double>())
    ("background-for", "come back after M s", cxxopts::value<double>()->default_value("5"))
    ("endcard-link", "close|reload|install|tel|geo|outbound|inhost|none",
     cxxopts::value<std::string>()->default_value("close"))
    ("showings", "number of showings", cxxopts::value<int>()->default_value("1"))
    ("inventory-only", "stop once the videos are cached")
    ("timeline", "write the timeline picture here (.svg or .html)",
     cxxopts::value<std::string>()->default_value("tovani-timeline.svg"))
    ("verbose", "print the SDK's log lines too")
    ("why", "after a showing that ended with 1 or 2, say why")
    ("events", "write the SDK's inspector events here (JSON lines)", cxxopts::value<std::string>())
    ("documents", "the app's documents folder, kept afterwards; default: a fresh one, removed",
     cxxopts::value<std::string>())
    ("faults", "ad server fault switches (JSON) from the start on", cxxopts::value<std::string>())
    ("headless", "the terminal timeline even where a display exists")
    ("screenshots", "windowed: show one ad, write PNGs of it into DIR and quit",
     cxxopts::value<std::string>())
    ("h,help", "this help");
  // clang-format on
  try {
    const auto args = cli.parse(argc, argv);
    if (args.count("help")) {
      std::cout << cli.help() << std::endl;
      return 0;
    }
#ifdef TOVANI_DEMO_WINDOWED
    // The window shows one ad to a person; the terminal options (a cold start only, a kept
    // documents folder, faults from the start) belong to the terminal timeline.
    const bool terminalOnly =
        args.count("inventory-only") || args.count("documents") || args.count("faults");
    if (!args.count("headless") && !terminalOnly && tovani::demo::displayAvailable()) {
      tovani::demo::WindowedOptions windowed;
      if (args.count("scenario")) windowed.scenarioFile = args["scenario"].as<std::string>();
      // Real time unless asked otherwise: a person is watching and listening.
      windowed.speed = args.count("speed") ? args["speed"].as<double>() : 1.0;
      if (args.count("screenshots"))
        windowed.screenshotsDir = args["screenshots"].as<std::string>();
      windowed.verbose = args.count("verbose") > 0;
      return tovani::demo::runWindowed(windowed);
    }
#endif
    tovani::demo::DemoOptions options;
    if (args.count("scenario")) options.scenarioFile = args["scenario"].as<std::string>();
    if (args.count("ad")) options.adId = args["ad"].as<std::string>();
    options.speed = args["speed"].as<double>();
    if (options.speed <= 0 || options.speed > 32)
      throw std::runtime_error("--speed must be in (0, 32]");
    if (args.count("skip-at")) options.actions.skipAt = args["skip-at"].as<double>();
    if (args.count("action-at")) options.actions.actionAt = args["action-at"].as<double>();
    if (args.count("background-at"))
      options.actions.backgroundAt = args["background-at"].as<double>();
    options.actions.backgroundFor = args["background-for"].as<double>();
    options.actions.endCardLink = args["endcard-link"].as<std::string>();
    options.showings = args["showings"].as<int>();
    options.inventoryOnly = args.count("inventory-only") > 0;
    options.timelineFile = args["timeline"].as<std::string>();
    options.verbose = args.count("verbose") > 0;
    options.why = args.count("why") > 0;
    if (args.count("events")) options.eventsFile = args["events"].as<std::string>();
    if (args.count("documents")) options.documentsDirectory = args["documents"].as<std::string>();
    if (args.count("faults")) options.faultsAtStart = args["faults"].as<std::string>();
    options.progressOnTerminal = isatty(STDOUT_FILENO) != 0;
    const auto report = tovani::demo::runDemo(options);
    return report.ok ? 0 : 1;
  } catch (const std::exception& e) {
    std::cerr << "tovani-demo: " << e.what() << std::endl;
    return 2;
  }
}
