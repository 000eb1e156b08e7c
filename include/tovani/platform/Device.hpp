#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include "tovani/Export.hpp"

namespace tovani {

struct Carrier {
  std::optional<std::string> carrierName;
  std::optional<std::string> mobileCountryCode;
  std::optional<std::string> mobileNetworkCode;
};

class TOVANI_EXPORT Device {
 public:
  virtual ~Device() = default;
  virtual std::optional<std::string> hardwareModel() const = 0;  // e.g. iPhone9,3
  virtual std::optional<std::string> osVersion() const = 0;      // e.g. 10.3
  virtual std::optional<Carrier> carrier() const = 0;            // none without a SIM
  // None when the facility does not exist; upper-case UUID text otherwise.
  virtual std::optional<std::string> advertisingIdentifier() const = 0;
  // The app's documents folder; the only place the SDK writes.
  virtual std::string documentsDirectory() const = 0;
  // Seconds since 1970 of the file's creation, or of its last write where the file
  // system records no creation time; none when the file cannot be read.
  virtual std::optional<double> fileCreationTime(const std::string& path) const = 0;
};

// Reachability flags as bits: reachable 0x2, connection-required 0x4,
// connection-on-traffic 0x8, intervention-required 0x10, connection-on-demand 0x20,
// is-cellular 0x40000.
class TOVANI_EXPORT ReachabilitySource {
 public:
  virtual ~ReachabilitySource() = default;
  // Flags for the general internet; none when they cannot be read.
  virtual std::optional<uint32_t> internetFlags() const = 0;
};

class TOVANI_EXPORT Log {
 public:
  virtual ~Log() = default;
  // One line, exactly as the SDK wrote it. May be called from the main thread only.
  virtual void write(const std::string& line) = 0;
};

}  // namespace tovani
