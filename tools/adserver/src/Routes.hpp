#pragma once
#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

#include "DeviceIds.hpp"
#include "Faults.hpp"
#include "RequestLog.hpp"
#include "Scenario.hpp"

namespace httplib {
class Server;
}

namespace tovani::adserver {

// Everything the request handlers share. It outlives both ports: the server stops them
// before any of this goes away.
struct ServerState {
  ServerState(HostNames h, Scenario s, std::filesystem::path fixtures, std::filesystem::path state)
      : hosts(std::move(h)),
        scenario(std::move(s)),
        fixturesDir(std::move(fixtures)),
        stateDir(std::move(state)),
        ids(scenario.uuid) {}

  HostNames hosts;
  Scenario scenario;
  std::filesystem::path fixturesDir;
  std::filesystem::path stateDir;
  FaultBoard faults;
  RequestLog log;
  DeviceIds ids;
  std::atomic<std::size_t> vastAnswers{0};
  // Waits `seconds` on a serving thread; false when the server began to stop meanwhile.
  std::function<bool(double seconds)> pause;
  // Called once per answered request (not for control requests); may be empty.
  std::function<void(const LoggedRequest&)> onRequest;
  // Extra facts for GET /__scenario (ports, CA file).
  std::function<nlohmann::json()> describeServer;
};

// Installs the control endpoints and the catch-all that serves the SDK on `server`.
void installRoutes(httplib::Server& server, const std::string& scheme, ServerState& state);

}  // namespace tovani::adserver
