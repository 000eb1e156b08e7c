#include "net/Reachability.hpp"

namespace tovani {

std::unique_ptr<Reachability> Reachability::reachabilityForInternetConnection(
    std::shared_ptr<ReachabilitySource> source) {
  return std::unique_ptr<Reachability>(new Reachability(std::move(source)));
}

NetworkStatus Reachability::currentReachabilityStatus() const {
  const std::optional<uint32_t> flags = source_ ? source_->internetFlags() : std::nullopt;
  return flags ? networkStatusForFlags(*flags) : NotReachable;
}

bool Reachability::connectionRequired() const {
  const std::optional<uint32_t> flags = source_ ? source_->internetFlags() : std::nullopt;
  return flags && (*flags & kReachabilityFlagConnectionRequired) != 0;
}

NetworkStatus Reachability::networkStatusForFlags(uint32_t flags) {
  const auto has = [flags](uint32_t bit) { return (flags & bit) != 0; };
  if (!has(kReachabilityFlagReachable)) return NotReachable;
  if (has(kReachabilityFlagIsWWAN)) return ReachableViaWWAN;
  // A connection that comes up by itself (on traffic or on demand) counts as there, unless
  // the user has to step in first.
  if (!has(kReachabilityFlagInterventionRequired) &&
      (has(kReachabilityFlagConnectionOnTraffic) || has(kReachabilityFlagConnectionOnDemand))) {
    return ReachableViaWiFi;
  }
  return has(kReachabilityFlagConnectionRequired) ? NotReachable : ReachableViaWiFi;
}

}  // namespace tovani
