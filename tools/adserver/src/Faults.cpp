#include "Faults.hpp"

#include <array>
#include <stdexcept>
#include <utility>

namespace tovani::adserver {
namespace {

constexpr std::array<std::pair<Route, std::string_view>, 8> kRouteNames{{
    {Route::store, "store"},
    {Route::adlist, "adlist"},
    {Route::vast, "vast"},
    {Route::video, "video"},
    {Route::image, "image"},
    {Route::endcard, "endcard"},
    {Route::track, "track"},
    {Route::other, "other"},
}};

// A stall only means something if it outlasts the SDK's 3-second idle time-out; a stall
// given as `true` is comfortably longer than that.
constexpr double kIdleTimeout = 3.0;
constexpr double kDefaultStall = 5.0;
constexpr double kLongestWait = 600.0;

[[noreturn]] void reject(const std::string& what) {
  throw std::invalid_argument(what);
}

double seconds(const nlohmann::json& value, const std::string& key) {
  if (!value.is_number()) reject("fault \"" + key + "\" needs a number of seconds");
  const double s = value.get<double>();
  if (!(s >= 0 && s <= kLongestWait)) reject("fault \"" + key + "\" is out of range");
  return s;
}

bool flag(const nlohmann::json& value, const std::string& key) {
  if (!value.is_boolean()) reject("fault \"" + key + "\" needs true or false");
  return value.get<bool>();
}

}  // namespace

std::string_view routeName(Route route) {
  for (const auto& [r, name] : kRouteNames) {
    if (r == route) return name;
  }
  return "other";
}

std::optional<Route> routeFromName(std::string_view name) {
  for (const auto& [r, n] : kRouteNames) {
    if (n == name) return r;
  }
  return std::nullopt;
}

Fault parseFault(const nlohmann::json& given) {
  if (!given.is_object()) reject("a fault must be a JSON object");
  Fault fault;
  for (const auto& [key, value] : given.items()) {
    if (key == "delay") {
      fault.delaySeconds = seconds(value, key);
    } else if (key == "stall") {
      fault.stallSeconds =
          value.is_boolean() ? (value.get<bool>() ? kDefaultStall : 0) : seconds(value, key);
      if (fault.stallSeconds != 0 && fault.stallSeconds <= kIdleTimeout) {
        reject("fault \"stall\" must last longer than 3 seconds; use \"delay\" for less");
      }
    } else if (key == "status") {
      if (!value.is_number_integer() || value.get<int>() < 100 || value.get<int>() > 599) {
        reject("fault \"status\" needs an HTTP status code");
      }
      fault.status = value.get<int>();
    } else if (key == "empty") {
      fault.empty = flag(value, key);
    } else if (key == "malformed") {
      fault.malformed = flag(value, key);
    } else if (key == "truncate") {
      if (value.is_boolean()) {
        fault.truncateKeep = value.get<bool>() ? 0.5 : 0;
      } else if (value.is_number() && value.get<double>() > 0 && value.get<double>() < 1) {
        fault.truncateKeep = value.get<double>();
      } else {
        reject("fault \"truncate\" needs true or the share to send, between 0 and 1");
      }
    } else if (key == "reset_connection") {
      fault.resetConnection = flag(value, key);
    } else if (key == "oversize") {
      if (!value.is_number_unsigned() || value.get<std::uint64_t>() == 0) {
        reject("fault \"oversize\" needs a positive number of bytes");
      }
      fault.oversizeBytes = value.get<std::uint64_t>();
    } else if (key == "redirect" || key == "file") {
      if (!value.is_string() || value.get<std::string>().empty()) {
        reject("fault \"" + key + "\" needs " + (key == "file" ? "a path" : "an address"));
      }
      (key == "file" ? fault.file : fault.redirect) = value.get<std::string>();
    } else if (key == "count") {
      if (!value.is_number_integer() || value.get<int>() < 1) {
        reject("fault \"count\" needs a positive whole number");
      }
      fault.remaining = value.get<int>();
    } else {
      reject("unknown fault switch \"" + key + "\"");
    }
  }
  return fault;
}

nlohmann::json faultToJson(const Fault& fault) {
  nlohmann::json out = nlohmann::json::object();
  if (fault.delaySeconds > 0) out["delay"] = fault.delaySeconds;
  if (fault.stallSeconds > 0) out["stall"] = fault.stallSeconds;
  if (fault.status) out["status"] = *fault.status;
  if (fault.empty) out["empty"] = true;
  if (fault.malformed) out["malformed"] = true;
  if (fault.truncateKeep > 0) out["truncate"] = fault.truncateKeep;
  if (fault.resetConnection) out["reset_connection"] = true;
  if (fault.oversizeBytes > 0) out["oversize"] = fault.oversizeBytes;
  if (fault.redirect) out["redirect"] = *fault.redirect;
  if (fault.file) out["file"] = *fault.file;
  if (fault.remaining) out["count"] = *fault.remaining;
  return out;
}

void FaultBoard::apply(const nlohmann::json& changes) {
  if (!changes.is_object()) reject("fault switches must be a JSON object");
  bool reset = false;
  std::map<Route, std::optional<Fault>> parsed;
  for (const auto& [key, value] : changes.items()) {
    if (key == "reset") {
      reset = flag(value, key);
      continue;
    }
    const auto route = routeFromName(key);
    if (!route || *route == Route::other) reject("unknown route \"" + key + "\"");
    parsed[*route] = value.is_null() ? std::nullopt : std::optional<Fault>(parseFault(value));
  }
  std::lock_guard lock(mutex_);
  if (reset) faults_.clear();
  for (auto& [route, fault] : parsed) {
    if (fault) {
      faults_[route] = *fault;
    } else {
      faults_.erase(route);
    }
  }
}

std::optional<Fault> FaultBoard::take(Route route) {
  std::lock_guard lock(mutex_);
  const auto it = faults_.find(route);
  if (it == faults_.end()) return std::nullopt;
  Fault fault = it->second;
  if (it->second.remaining && --*it->second.remaining == 0) faults_.erase(it);
  return fault;
}

nlohmann::json FaultBoard::snapshot() const {
  std::lock_guard lock(mutex_);
  nlohmann::json out = nlohmann::json::object();
  for (const auto& [route, fault] : faults_)
    out[std::string(routeName(route))] = faultToJson(fault);
  return out;
}

}  // namespace tovani::adserver
