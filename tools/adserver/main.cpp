// tovani-adserver: serves the SDK's whole backend on two loopback ports until interrupted.
#include <pthread.h>
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>

#include "tovani/adserver/AdServer.hpp"

namespace {

constexpr const char* kUsage =
    "usage: tovani-adserver [--scenario FILE] [--http-port N] [--https-port N]\n"
    "                       [--bind ADDRESS] [--state-dir DIR] [--fixtures DIR] [--quiet]\n"
    "Without --scenario the built-in default scenario is served. Ports default to 0\n"
    "(any free port); the ports in use are printed at start.\n";

bool parsePort(const std::string& text, int& port) {
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < 0 || value > 65535) return false;
  port = static_cast<int>(value);
  return true;
}

// Fills `options`; returns false (after printing why) when the command line is wrong.
bool parseArguments(int argc, char** argv, tovani::adserver::Options& options, bool& quiet) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      std::exit(0);
    }
    if (arg == "--quiet") {
      quiet = true;
      continue;
    }
    if (i + 1 >= argc) {
      std::cerr << "tovani-adserver: " << arg << " needs a value\n" << kUsage;
      return false;
    }
    const std::string value = argv[++i];
    bool ok = true;
    if (arg == "--scenario") {
      options.scenarioFile = value;
    } else if (arg == "--http-port") {
      ok = parsePort(value, options.httpPort);
    } else if (arg == "--https-port") {
      ok = parsePort(value, options.httpsPort);
    } else if (arg == "--bind") {
      options.bindAddress = value;
    } else if (arg == "--state-dir") {
      options.stateDir = value;
    } else if (arg == "--fixtures") {
      options.fixturesDir = value;
    } else {
      std::cerr << "tovani-adserver: unknown option " << arg << "\n" << kUsage;
      return false;
    }
    if (!ok) {
      std::cerr << "tovani-adserver: " << arg << " needs a port number, got " << value << "\n";
      return false;
    }
  }
  return true;
}

void printBanner(const tovani::adserver::AdServer& server, const tovani::adserver::Options& o) {
  const auto& h = server.hosts();
  const std::string local = o.bindAddress + ":";
  const std::string http = std::to_string(server.httpPort());
  const std::string https = std::to_string(server.httpsPort());
  std::cout << "tovani development ad server\n"
            << "  scenario   " << server.scenarioName() << " ("
            << (o.scenarioFile.empty() ? std::string("built in") : o.scenarioFile.string())
            << ")\n";
  if (!server.scenarioDescription().empty()) {
    std::cout << "             " << server.scenarioDescription() << "\n";
  }
  std::cout << "  http       http://" << local << http << "  serves " << h.production << ", "
            << h.test << "\n"
            << "  https      https://" << local << https << "  serves " << h.cdnHost << " ("
            << h.cdnUrl << ")\n"
            << "  CA file    " << server.caFile().string() << "\n"
            << "  state dir  " << server.stateDir().string() << "\n"
            << "  log        curl http://" << local << http << "/__log\n"
            << "  scenario   curl http://" << local << http << "/__scenario\n"
            << "  e.g.       curl --connect-to " << h.production << ":80:" << local << http
            << " 'http://" << h.production << "/cgi-bin/conad_tovani.fcgi/M/S?xml=json'\n"
            << "             curl --cacert " << server.caFile().string() << " --connect-to "
            << h.cdnHost << ":443:" << local << https << " " << h.cdnUrl
            << "button/click.png -o click.png\n"
            << "Press Ctrl-C to stop.\n"
            << std::flush;
}

}  // namespace

int main(int argc, char** argv) {
  tovani::adserver::Options options;
  bool quiet = false;
  if (!parseArguments(argc, argv, options, quiet)) return 2;

  std::mutex printing;
  if (!quiet) {
    options.onRequest = [&printing](const tovani::adserver::LoggedRequest& r) {
      char stamp[32];
      std::snprintf(stamp, sizeof stamp, "[%8.3f]", r.time);
      std::lock_guard lock(printing);
      std::cout << stamp << ' ' << r.status << ' ' << r.route << ' ' << r.method << ' ' << r.scheme
                << "://" << r.host << r.path << (r.query.empty() ? "" : "?") << r.query
                << std::endl;
    };
  }

  // Block the stop signals before any serving thread exists, so that every thread
  // inherits the mask and only sigwait() below ever receives them.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);

  tovani::adserver::AdServer server(options);
  try {
    server.start();
  } catch (const std::exception& e) {
    std::cerr << "tovani-adserver: " << e.what() << "\n";
    return 1;
  }
  printBanner(server, options);

  int received = 0;
  sigwait(&stopSignals, &received);
  {
    std::lock_guard lock(printing);
    std::cout << "tovani-adserver: " << (received == SIGINT ? "SIGINT" : "SIGTERM")
              << ", stopping\n"
              << std::flush;
  }
  server.stop();
  return 0;
}
