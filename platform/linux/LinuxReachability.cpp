#include <fnmatch.h>
#include <gio/gio.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <cstring>

#include <fstream>
#include <sstream>

#include "tovani/linux/LinuxDevice.hpp"

namespace tovani::linux {

namespace {

constexpr uint32_t kReachable = 0x2;
constexpr uint32_t kInterventionRequired = 0x10;
constexpr uint32_t kIsCellular = 0x40000;
constexpr unsigned long kRouteUp = 0x1;        // RTF_UP
constexpr unsigned long kRouteReject = 0x200;  // RTF_REJECT: an "unreachable" route

unsigned long hexValue(const std::string& text) {
  try {
    return std::stoul(text, nullptr, 16);
  } catch (...) {
    return 0;
  }
}

// Interfaces of the IPv4 default routes; false when the table cannot be read.
bool ipv4Defaults(const std::string& table, std::vector<std::string>& out) {
  std::ifstream file(table);
  if (!file) return false;
  std::string line;
  std::getline(file, line);  // column titles
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string iface, destination, gateway, flags, refs, use, metric, mask;
    if (!(fields >> iface >> destination >> gateway >> flags >> refs >> use >> metric >> mask)) {
      continue;
    }
    if (destination == "00000000" && mask == "00000000" && (hexValue(flags) & kRouteUp) != 0) {
      out.push_back(iface);
    }
  }
  return true;
}

bool ipv6Defaults(const std::string& table, std::vector<std::string>& out) {
  std::ifstream file(table);
  if (!file) return false;
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string destination, prefix, source, sourcePrefix, next, metric, refs, use, flags, iface;
    if (!(fields >> destination >> prefix >> source >> sourcePrefix >> next >> metric >> refs >>
          use >> flags >> iface)) {
      continue;
    }
    const unsigned long bits = hexValue(flags);
    if (destination == std::string(32, '0') && prefix == "00" && (bits & kRouteUp) != 0 &&
        (bits & kRouteReject) == 0) {
      out.push_back(iface);
    }
  }
  return true;
}

std::optional<unsigned long> interfaceFlags(const std::string& folder, const std::string& name) {
  std::ifstream file(folder + "/" + name + "/flags");
  std::string text;
  if (file >> text) return hexValue(text);
  // Without sysfs, ask the kernel directly.
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return std::nullopt;
  std::optional<unsigned long> flags;
  for (ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_name != nullptr && name == entry->ifa_name) flags = entry->ifa_flags;
  }
  freeifaddrs(list);
  return flags;
}

}  // namespace

namespace detail {

uint32_t monitorFlags(bool available, int connectivity, bool metered) {
  // Local connectivity means no route off this machine; limited means a route but no answer
  // from the wider internet, where the ad host may still be (a LAN or loopback server).
  if (!available || connectivity == G_NETWORK_CONNECTIVITY_LOCAL) return 0;
  uint32_t flags = kReachable;
  if (connectivity == G_NETWORK_CONNECTIVITY_PORTAL) flags |= kInterventionRequired;
  // A metered network is what a phone's cellular link is to the SDK: costly data.
  if (metered) flags |= kIsCellular;
  return flags;
}

}  // namespace detail

std::optional<uint32_t> LinuxReachability::internetFlags() const {
  std::lock_guard lock(mutex_);
  if (options_.overrideFlags) return options_.overrideFlags;
  if (options_.networkMonitor) {
    // GIO's process-wide monitor; its plain base kind answers "available" whatever the
    // network does, so only a real one (netlink, NetworkManager, portal) is believed.
    GNetworkMonitor* monitor = g_network_monitor_get_default();
    if (monitor != nullptr &&
        std::strcmp(G_OBJECT_TYPE_NAME(monitor), "GNetworkMonitorBase") != 0) {
      return detail::monitorFlags(g_network_monitor_get_network_available(monitor) != FALSE,
                                  g_network_monitor_get_connectivity(monitor),
                                  g_network_monitor_get_network_metered(monitor) != FALSE);
    }
    if (!fallbackLogged_ && log_) {
      log_->write("reachability: no network monitor on this system; reading the routing table");
    }
    fallbackLogged_ = true;
  }
  return routeTableFlags();
}

std::optional<uint32_t> LinuxReachability::routeTableFlags() const {
  std::vector<std::string> defaults;
  const bool v4 = ipv4Defaults(options_.ipv4RouteTable, defaults);
  const bool v6 = ipv6Defaults(options_.ipv6RouteTable, defaults);
  if (!v4 && !v6) return std::nullopt;
  bool reachable = false;
  bool onlyCellular = true;
  for (const auto& iface : defaults) {
    const auto flags = interfaceFlags(options_.interfaceFolder, iface);
    if (iface == "lo" || !flags || (*flags & IFF_UP) == 0 || (*flags & IFF_LOOPBACK) != 0) {
      continue;
    }
    reachable = true;
    bool cellular = false;
    for (const auto& pattern : options_.cellularInterfaces) {
      if (fnmatch(pattern.c_str(), iface.c_str(), 0) == 0) cellular = true;
    }
    // Another usable route (Wi-Fi or wired) is what traffic would take, as on a phone.
    onlyCellular = onlyCellular && cellular;
  }
  if (!reachable) return 0u;
  return kReachable | (onlyCellular ? kIsCellular : 0u);
}

void LinuxReachability::setOverride(std::optional<uint32_t> flags) {
  std::lock_guard lock(mutex_);
  options_.overrideFlags = flags;
}

}  // namespace tovani::linux
