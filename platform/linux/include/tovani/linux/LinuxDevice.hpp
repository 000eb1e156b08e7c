#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tovani/Export.hpp"
#include "tovani/platform/Device.hpp"

#pragma push_macro("linux")
#undef linux

namespace tovani::linux {

struct DeviceOptions {
  std::string appName = "tovani";  // names the default documents folder
  // Overrides; by default the machine name of uname(2) (e.g. "x86_64") and VERSION_ID of
  // os-release (the kernel release when there is none).
  std::optional<std::string> hardwareModel;
  std::optional<std::string> osVersion;
  std::string osReleasePath = "/etc/os-release";
  std::optional<Carrier> carrier;                    // none: no SIM
  std::optional<std::string> advertisingIdentifier;  // none: no such facility
  // Default: $XDG_DATA_HOME/<appName>/Documents, or ~/.local/share/<appName>/Documents.
  std::optional<std::string> documentsDirectory;
};

class TOVANI_EXPORT LinuxDevice final : public Device {
 public:
  // Works out the values once and creates the documents folder (mode 0700) when missing.
  explicit LinuxDevice(DeviceOptions options = {});

  std::optional<std::string> hardwareModel() const override { return hardwareModel_; }
  std::optional<std::string> osVersion() const override { return osVersion_; }
  std::optional<Carrier> carrier() const override { return options_.carrier; }
  std::optional<std::string> advertisingIdentifier() const override {
    return options_.advertisingIdentifier;
  }
  std::string documentsDirectory() const override { return documents_; }
  // Birth time where the file system records one (statx), the last write otherwise.
  std::optional<double> fileCreationTime(const std::string& path) const override;

 private:
  DeviceOptions options_;
  std::optional<std::string> hardwareModel_;
  std::optional<std::string> osVersion_;
  std::string documents_;
};

struct ReachabilityOptions {
  std::optional<uint32_t> overrideFlags;  // answered as is when set
  // Ask GIO's network monitor (network available, connectivity, metered). Without a real
  // monitor on the system, or with this off, the routing tables below are read instead.
  bool networkMonitor = true;
  // Interfaces whose default route counts as cellular (shell patterns).
  std::vector<std::string> cellularInterfaces = {"wwan*", "rmnet*", "ccmni*"};
  std::string ipv4RouteTable = "/proc/net/route";
  std::string ipv6RouteTable = "/proc/net/ipv6_route";
  std::string interfaceFolder = "/sys/class/net";  // <name>/flags holds the IFF_* bits
};

// From GIO's network monitor: reachable (0x2) when the network is available and reaches
// beyond this machine, intervention-required (0x10) behind a captive portal, is-cellular
// (0x40000) on a metered network. Where the system has no monitor: reachable when a default
// route leaves through a non-loopback interface that is up, is-cellular when that interface
// is a cellular one, none when no route table can be read (logged once).
class TOVANI_EXPORT LinuxReachability final : public ReachabilitySource {
 public:
  explicit LinuxReachability(ReachabilityOptions options = {}, std::shared_ptr<Log> log = nullptr)
      : options_(std::move(options)), log_(std::move(log)) {}
  std::optional<uint32_t> internetFlags() const override;
  void setOverride(std::optional<uint32_t> flags);

 private:
  std::optional<uint32_t> routeTableFlags() const;

  mutable std::mutex mutex_;
  ReachabilityOptions options_;
  std::shared_ptr<Log> log_;
  mutable bool fallbackLogged_ = false;
};

namespace detail {
// The flags for a network monitor's state; `connectivity` is a GNetworkConnectivity value.
uint32_t monitorFlags(bool available, int connectivity, bool metered);
}  // namespace detail

// Log lines to standard error as "[tovani] <line>", or to the host's sink when one is set.
class TOVANI_EXPORT LinuxLog final : public Log {
 public:
  explicit LinuxLog(std::function<void(const std::string&)> sink = {}) : sink_(std::move(sink)) {}
  void write(const std::string& line) override;
  void setSink(std::function<void(const std::string&)> sink);

 private:
  std::mutex mutex_;
  std::function<void(const std::string&)> sink_;
};

}  // namespace tovani::linux

#pragma pop_macro("linux")
