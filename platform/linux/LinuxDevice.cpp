#include "tovani/linux/LinuxDevice.hpp"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tovani::linux {

namespace {

std::optional<std::string> machineName() {
  utsname names{};
  if (uname(&names) != 0 || names.machine[0] == '\0') return std::nullopt;
  return std::string(names.machine);
}

std::optional<std::string> kernelRelease() {
  utsname names{};
  if (uname(&names) != 0 || names.release[0] == '\0') return std::nullopt;
  return std::string(names.release);
}

std::optional<std::string> osReleaseVersion(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  while (std::getline(file, line)) {
    if (!line.starts_with("VERSION_ID=")) continue;
    std::string value = line.substr(11);
    if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
        value.back() == value.front()) {
      value = value.substr(1, value.size() - 2);
    }
    if (!value.empty()) return value;
  }
  return std::nullopt;
}

std::string homeFolder() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') return home;
  if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
    return entry->pw_dir;
  }
  return "/tmp";
}

std::string defaultDocuments(std::string appName) {
  // The name becomes one path component, never a way out of the data folder.
  if (appName.empty() || appName == "." || appName == ".." ||
      appName.find('/') != std::string::npos) {
    appName = "tovani";
  }
  std::filesystem::path data;
  // Relative values are invalid for XDG base directories and are ignored.
  if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && *xdg == '/') {
    data = xdg;
  } else {
    data = std::filesystem::path(homeFolder()) / ".local" / "share";
  }
  return (data / appName / "Documents").string();
}

// Creates each missing folder of `path` private to the user.
void createPrivateFolders(const std::filesystem::path& path) {
  std::filesystem::path partial;
  for (const auto& part : path) {
    partial /= part;
    if (::mkdir(partial.c_str(), 0700) != 0 && errno != EEXIST) return;
  }
}

}  // namespace

LinuxDevice::LinuxDevice(DeviceOptions options) : options_(std::move(options)) {
  hardwareModel_ = options_.hardwareModel ? options_.hardwareModel : machineName();
  osVersion_ = options_.osVersion ? options_.osVersion : osReleaseVersion(options_.osReleasePath);
  if (!osVersion_) osVersion_ = kernelRelease();
  documents_ = options_.documentsDirectory ? *options_.documentsDirectory
                                           : defaultDocuments(options_.appName);
  createPrivateFolders(documents_);
}

std::optional<double> LinuxDevice::fileCreationTime(const std::string& path) const {
  struct statx info {};
  if (statx(AT_FDCWD, path.c_str(), AT_STATX_SYNC_AS_STAT, STATX_BTIME | STATX_MTIME, &info) != 0) {
    return std::nullopt;
  }
  const auto seconds = [](const statx_timestamp& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
  };
  if ((info.stx_mask & STATX_BTIME) != 0) return seconds(info.stx_btime);
  if ((info.stx_mask & STATX_MTIME) != 0) return seconds(info.stx_mtime);
  return std::nullopt;
}

void LinuxLog::write(const std::string& line) {
  std::lock_guard lock(mutex_);
  if (sink_) {
    sink_(line);
  } else {
    std::fprintf(stderr, "[tovani] %s\n", line.c_str());
  }
}

void LinuxLog::setSink(std::function<void(const std::string&)> sink) {
  std::lock_guard lock(mutex_);
  sink_ = std::move(sink);
}

}  // namespace tovani::linux
