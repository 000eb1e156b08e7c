#pragma once
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "tovani/platform/Device.hpp"

namespace tovani {

enum NetworkStatus : int32_t { NotReachable = 0, ReachableViaWiFi = 1, ReachableViaWWAN = 2 };

inline constexpr uint32_t kReachabilityFlagReachable = 0x2;
inline constexpr uint32_t kReachabilityFlagConnectionRequired = 0x4;
inline constexpr uint32_t kReachabilityFlagConnectionOnTraffic = 0x8;
inline constexpr uint32_t kReachabilityFlagInterventionRequired = 0x10;
inline constexpr uint32_t kReachabilityFlagConnectionOnDemand = 0x20;
inline constexpr uint32_t kReachabilityFlagIsWWAN = 0x40000;

// One-shot reachability of the general internet, read from the platform's flags.
class Reachability {
 public:
  static std::unique_ptr<Reachability> reachabilityForInternetConnection(
      std::shared_ptr<ReachabilitySource> source);
  NetworkStatus currentReachabilityStatus() const;  // NotReachable when unreadable
  bool connectionRequired() const;
  static NetworkStatus networkStatusForFlags(uint32_t flags);

 private:
  explicit Reachability(std::shared_ptr<ReachabilitySource> source) : source_(std::move(source)) {}
  std::shared_ptr<ReachabilitySource> source_;
};

}  // namespace tovani
