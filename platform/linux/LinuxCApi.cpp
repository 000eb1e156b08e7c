// The C interface's Linux part: options, attaching the platform, running its main loop.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>

#include "tovani/TovaniSDK.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "tovani/tovani.h"

struct tovani_linux_options {
  tovani::linux::LinuxPlatformOptions options;
};

#pragma push_macro("linux")
#undef linux

namespace {

struct Attached {
  tovani::linux::LinuxPlatform platform;
  bool quitRequested = false;
  bool running = false;
};

std::optional<Attached>& attached() {
  static std::optional<Attached> state;
  return state;
}

void logLine(const std::string& line) {
  try {
    if (auto& a = attached(); a && a->platform.log) {
      a->platform.log->write(line);
    } else {
      std::cerr << "[tovani] " << line << "\n";
    }
  } catch (...) {
  }
}

// Runs `work`, returning its answer; anything thrown becomes a log line and `failed`.
template <typename Work>
int cEntry(const char* name, int failed, Work&& work) noexcept {
  try {
    return work();
  } catch (const std::exception& e) {
    logLine(std::string("tovani: ") + name + " failed: " + e.what());
  } catch (...) {
    logLine(std::string("tovani: ") + name + " failed");
  }
  return failed;
}

// Checks the two arguments every string setter takes.
bool usable(const char* name, const tovani_linux_options* options, const char* text) {
  if (!options || !text) {
    logLine(std::string("tovani: ") + name + ": NULL " + (options ? "text" : "options") +
            "; ignored");
    return false;
  }
  return true;
}

}  // namespace

extern "C" {

tovani_linux_options* tovani_linux_options_create(void) {
  return new (std::nothrow) tovani_linux_options{};
}

void tovani_linux_options_release(tovani_linux_options* options) {
  delete options;
}

int tovani_linux_options_add_host_mapping(tovani_linux_options* options, const char* mapping) {
  return cEntry("tovani_linux_options_add_host_mapping", -1, [&] {
    if (!usable("tovani_linux_options_add_host_mapping", options, mapping)) return -1;
    options->options.http.connectTo.emplace_back(mapping);
    return 0;
  });
}

int tovani_linux_options_set_ca_file(tovani_linux_options* options, const char* path) {
  return cEntry("tovani_linux_options_set_ca_file", -1, [&] {
    if (!usable("tovani_linux_options_set_ca_file", options, path)) return -1;
    options->options.http.caFile = path;
    return 0;
  });
}

int tovani_linux_options_set_documents_dir(tovani_linux_options* options, const char* path) {
  return cEntry("tovani_linux_options_set_documents_dir", -1, [&] {
    if (!usable("tovani_linux_options_set_documents_dir", options, path)) return -1;
    if (path[0] != '/') {
      logLine("tovani: tovani_linux_options_set_documents_dir: not an absolute path; ignored");
      return -1;
    }
    options->options.device.documentsDirectory = std::string(path);
    return 0;
  });
}

int tovani_linux_options_set_playback_rate(tovani_linux_options* options, double rate) {
  return cEntry("tovani_linux_options_set_playback_rate", -1, [&] {
    if (!options || !std::isfinite(rate) || rate <= 0) {
      logLine("tovani: tovani_linux_options_set_playback_rate: needs options and a rate > 0");
      return -1;
    }
    options->options.player.playbackRate = rate;
    return 0;
  });
}

int tovani_linux_options_set_always_online(tovani_linux_options* options, int online) {
  return cEntry("tovani_linux_options_set_always_online", -1, [&] {
    if (!options) {
      logLine("tovani: tovani_linux_options_set_always_online: NULL options; ignored");
      return -1;
    }
    options->options.reachability.overrideFlags =
        online ? std::optional<uint32_t>(0x2) : std::nullopt;
    return 0;
  });
}

int tovani_linux_attach(const tovani_linux_options* options) {
  return cEntry("tovani_linux_attach", -1, [&] {
    auto& state = attached();
    if (state || tovani_started()) {
      logLine("tovani: tovani_linux_attach: the SDK already has its platform; ignored");
      return -1;
    }
    tovani::linux::LinuxPlatformOptions chosen =
        options ? options->options : tovani::linux::LinuxPlatformOptions{};
    chosen.mainContext = tovani::linux::MainContextChoice::Default;
    state.emplace();
    state->platform = tovani::linux::makeLinuxPlatform(std::move(chosen));
    tovani::TovaniSDK::setPlatform(state->platform.platform);
    return 0;
  });
}

int tovani_linux_run(double timeout_seconds) {
  return cEntry("tovani_linux_run", -1, [&] {
    auto& state = attached();
    if (!state) {
      logLine("tovani: tovani_linux_run: no platform attached (tovani_linux_attach)");
      return -1;
    }
    if (state->running) {
      logLine("tovani: tovani_linux_run: already running; ignored");
      return -1;
    }
    // "No limit" is ten days: the loop's timer takes milliseconds in 32 bits.
    constexpr double kNoLimit = 10 * 24 * 3600.0;
    const double limit = std::isnan(timeout_seconds) || timeout_seconds < 0
                             ? kNoLimit
                             : std::min(timeout_seconds, kNoLimit);
    // A quit that came before this call (a callback delivered at once) ends it at once.
    state->running = true;
    auto loop = state->platform.mainLoop;
    const bool quit = loop->runUntil([&state] { return state->quitRequested; }, limit);
    state->running = false;
    state->quitRequested = false;
    return quit ? 1 : 0;
  });
}

void tovani_linux_quit(void) {
  cEntry("tovani_linux_quit", 0, [] {
    if (auto& state = attached()) state->quitRequested = true;
    return 0;
  });
}

}  // extern "C"

#pragma pop_macro("linux")
