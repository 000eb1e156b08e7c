#pragma once
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tovani::adserver {

// The kinds of answer the server gives; fault switches are set per route.
enum class Route { store, adlist, vast, video, image, endcard, track, other };

std::string_view routeName(Route route);
std::optional<Route> routeFromName(std::string_view name);

// How one answer is spoiled. Several switches combine: the waits come first, then the
// status and body changes, then the truncation.
struct Fault {
  double delaySeconds = 0;  // answer late, but within a client's patience
  double stallSeconds = 0;  // send nothing at all for longer than a 3-s idle time-out
  std::optional<int> status;
  bool empty = false;                   // a 200 (or `status`) with an empty body
  bool malformed = false;               // a body of the right type that does not parse
  double truncateKeep = 0;              // > 0: announce the full length, send this share, hang up
  bool resetConnection = false;         // no answer: the connection is reset (TCP RST) at once
  std::uint64_t oversizeBytes = 0;      // > 0: announce and send this many bytes instead
  std::optional<std::string> redirect;  // 302 to this address, whatever its scheme or host
  std::optional<std::string> file;      // the body is this file's bytes
  std::optional<int> remaining;         // how many more answers it spoils; none = all
};

// Reads one fault object, e.g. {"stall": 5} or {"status": 500, "count": 1}. Throws
// std::invalid_argument naming the bad key, so that a typo in a test fails loudly.
Fault parseFault(const nlohmann::json& given);
nlohmann::json faultToJson(const Fault& fault);

// The live fault switches, shared by the serving threads.
class FaultBoard {
 public:
  // {"reset": true, "<route>": {...} | null, ...}: null clears a route, "reset" clears all
  // first. The whole object is checked before anything changes.
  void apply(const nlohmann::json& changes);
  // The fault to use for the next answer of `route`, counting one use of it.
  std::optional<Fault> take(Route route);
  nlohmann::json snapshot() const;

 private:
  mutable std::mutex mutex_;
  std::map<Route, Fault> faults_;
};

}  // namespace tovani::adserver
