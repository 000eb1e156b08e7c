#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <thread>

#include "tovani/linux/LinuxPlatform.hpp"

namespace tovani::linux {
namespace {

namespace fs = std::filesystem;

class TempFolder {
 public:
  TempFolder() {
    char name[] = "/tmp/tovani-system-XXXXXX";
    path_ = mkdtemp(name);
  }
  ~TempFolder() { fs::remove_all(path_); }
  const fs::path& path() const { return path_; }
  void write(const fs::path& relative, const std::string& text) const {
    fs::create_directories((path_ / relative).parent_path());
    std::ofstream(path_ / relative) << text;
  }

 private:
  fs::path path_;
};

// Points XDG_DATA_HOME somewhere else for one scope, so that nothing lands in the real home.
class DataHome {
 public:
  explicit DataHome(const fs::path& folder) {
    if (const char* value = std::getenv("XDG_DATA_HOME")) saved_ = value;
    setenv("XDG_DATA_HOME", folder.c_str(), 1);
  }
  ~DataHome() {
    if (saved_) {
      setenv("XDG_DATA_HOME", saved_->c_str(), 1);
    } else {
      unsetenv("XDG_DATA_HOME");
    }
  }

 private:
  std::optional<std::string> saved_;
};

utsname machine() {
  utsname names{};
  uname(&names);
  return names;
}

TEST(LinuxDevice, DescribesThisMachineUnlessTold) {
  TempFolder folder;
  DeviceOptions options;
  options.documentsDirectory = (folder.path() / "docs").string();
  options.osReleasePath = (folder.path() / "os-release").string();
  folder.write("os-release", "NAME=\"Some Linux\"\nVERSION_ID=\"10.3\"\n");
  LinuxDevice device(options);
  EXPECT_EQ(device.hardwareModel(), std::string(machine().machine));
  EXPECT_EQ(device.osVersion(), "10.3");
  EXPECT_EQ(device.carrier(), std::nullopt);
  EXPECT_EQ(device.advertisingIdentifier(), std::nullopt);
  EXPECT_TRUE(fs::is_directory(device.documentsDirectory()));

  options.osReleasePath = (folder.path() / "absent").string();
  options.hardwareModel = "iPhone9,3";
  options.carrier = Carrier{"Tovani Mobile", "450", "05"};
  options.advertisingIdentifier = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
  LinuxDevice told(options);
  EXPECT_EQ(told.osVersion(), std::string(machine().release));
  EXPECT_EQ(told.hardwareModel(), "iPhone9,3");
  ASSERT_TRUE(told.carrier());
  EXPECT_EQ(told.carrier()->mobileCountryCode, "450");
  EXPECT_EQ(told.advertisingIdentifier(), "6D92078A-8246-4BA4-AE5B-76104861E7DC");
}

TEST(LinuxDevice, DocumentsFolderIsPrivateAndStaysUnderTheDataHome) {
  TempFolder folder;
  std::string documents, guarded;
  {
    DataHome home(folder.path());
    DeviceOptions options;
    options.appName = "demo-host";
    documents = LinuxDevice(options).documentsDirectory();
    options.appName = "../../escape";
    guarded = LinuxDevice(options).documentsDirectory();
  }

  EXPECT_EQ(documents, (folder.path() / "demo-host" / "Documents").string());
  for (const auto& created : {folder.path() / "demo-host", folder.path() / "demo-host/Documents"}) {
    struct stat info {};
    ASSERT_EQ(stat(created.c_str(), &info), 0) << created;
    EXPECT_EQ(info.st_mode & 0777, 0700u) << created;
  }
  EXPECT_EQ(guarded, (folder.path() / "tovani" / "Documents").string());
}

TEST(LinuxDevice, CreationTimeIsTheBirthTimeOrElseTheLastWrite) {
  TempFolder folder;
  DeviceOptions options;
  options.documentsDirectory = folder.path().string();
  LinuxDevice device(options);
  EXPECT_EQ(device.fileCreationTime((folder.path() / "missing").string()), std::nullopt);

  // procfs records no birth time: the last write stands in.
  struct stat proc {};
  ASSERT_EQ(stat("/proc/self/stat", &proc), 0);
  const auto fallback = device.fileCreationTime("/proc/self/stat");
  ASSERT_TRUE(fallback);
  EXPECT_NEAR(*fallback, static_cast<double>(proc.st_mtim.tv_sec), 1.0);

  // A new file whose write time is moved back a year: a birth time stays at "now".
  folder.write("video.mp4", "data");
  const std::string video = (folder.path() / "video.mp4").string();
  const timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - 365 * 86400, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, video.c_str(), times, 0), 0);
  const auto created = device.fileCreationTime(video);
  ASSERT_TRUE(created);
  const double now = static_cast<double>(time(nullptr));
  EXPECT_TRUE(std::abs(*created - now) < 5 || std::abs(*created - (now - 365 * 86400)) < 5)
      << *created;
}

TEST(LinuxReachability, FollowsTheDefaultRouteAndItsInterface) {
  TempFolder folder;
  const std::string v4Header = "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\n";
  const auto v4Default = [](const std::string& iface, const std::string& flags) {
    return iface + "\t00000000\t0102A8C0\t" + flags + "\t0\t0\t0\t00000000\n";
  };
  folder.write("net/eth0/flags", "0x1003\n");
  folder.write("net/wwan0/flags", "0x1091\n");
  folder.write("net/down0/flags", "0x1002\n");
  folder.write("net/lo/flags", "0x9\n");
  folder.write("empty6", "");
  const auto flagsFor = [&](const std::string& v4, const std::string& v6 = "") {
    folder.write("route", v4Header + v4);
    folder.write("route6", v6);
    ReachabilityOptions options;
    options.ipv4RouteTable = (folder.path() / "route").string();
    options.ipv6RouteTable = (folder.path() / "route6").string();
    options.interfaceFolder = (folder.path() / "net").string();
    return LinuxReachability(options).internetFlags();
  };
  EXPECT_EQ(flagsFor(v4Default("eth0", "0003")), 0x2u);
  EXPECT_EQ(flagsFor(v4Default("wwan0", "0003")), 0x40002u);
  EXPECT_EQ(flagsFor(v4Default("wwan0", "0003") + v4Default("eth0", "0003")), 0x2u);
  EXPECT_EQ(flagsFor(v4Default("down0", "0003")), 0u);
  EXPECT_EQ(flagsFor(v4Default("eth0", "0002")), 0u);  // the route itself is not up
  EXPECT_EQ(flagsFor("eth0\t0000A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\n"), 0u);  // no default
  // IPv6 only; the kernel's "unreachable" default through lo does not count.
  const std::string v6Default =
      std::string(32, '0') + " 00 " + std::string(32, '0') + " 00 " + std::string(32, '0');
  EXPECT_EQ(flagsFor("", v6Default + " 00000400 00000002 00000000 00000003 eth0\n"), 0x2u);
  EXPECT_EQ(flagsFor("", v6Default + " ffffffff 00000001 00000000 00200200 lo\n"), 0u);

  ReachabilityOptions unreadable;
  unreadable.ipv4RouteTable = (folder.path() / "none").string();
  unreadable.ipv6RouteTable = (folder.path() / "none6").string();
  LinuxReachability broken(unreadable);
  EXPECT_EQ(broken.internetFlags(), std::nullopt);
  broken.setOverride(0x40002u);
  EXPECT_EQ(broken.internetFlags(), 0x40002u);

  const auto here = LinuxReachability().internetFlags();
  ASSERT_TRUE(here) << "this machine has a readable route table";
  EXPECT_TRUE(*here == 0 || *here == 0x2 || *here == 0x40002) << *here;
}

TEST(LinuxPlatform, BundlesEveryPortAndDeliversHostEventsOnTheLoop) {
  TempFolder folder;
  std::vector<std::string> lines;
  LinuxPlatformOptions options;
  options.mainContext = MainContextChoice::Private;
  options.device.documentsDirectory = folder.path().string();
  options.logSink = [&](const std::string& line) { lines.push_back(line); };
  auto linux = makeLinuxPlatform(options);
  const Platform& platform = *linux.platform;
  ASSERT_TRUE(platform.mainQueue && platform.clock && platform.http && platform.players &&
              platform.webViews && platform.screen && platform.application && platform.device &&
              platform.reachability && platform.log);
  EXPECT_EQ(platform.mainQueue.get(), linux.mainLoop.get());
  EXPECT_NEAR(platform.clock->now(), static_cast<double>(time(nullptr)), 2.0);

  // Screen: a phone that turns.
  EXPECT_EQ(platform.screen->deviceModelName(), "iPhone");
  EXPECT_EQ(platform.screen->interfaceIdiom(), InterfaceIdiom::Phone);
  std::vector<std::pair<AppEvent, Size>> events;
  platform.application->setEventHandler([&](AppEvent event) {
    EXPECT_TRUE(linux.mainLoop->isLoopThread());
    events.push_back({event, platform.screen->boundsSize()});
  });
  linux.rotate(DeviceOrientation::LandscapeRight);
  std::thread([&] { linux.application->sendEvent(AppEvent::WillResignActive); }).join();
  EXPECT_TRUE(events.empty());
  ASSERT_TRUE(linux.mainLoop->runUntil([&] { return events.size() == 2; }, 2));
  EXPECT_EQ(events[0].first, AppEvent::OrientationDidChange);
  EXPECT_EQ(events[0].second, (Size{667, 375}));
  EXPECT_EQ(events[1].first, AppEvent::WillResignActive);
  linux.screen->setOrientation(DeviceOrientation::FaceUp);
  EXPECT_EQ(platform.screen->boundsSize(), (Size{667, 375}));
  linux.screen->setOrientation(DeviceOrientation::PortraitUpsideDown);
  EXPECT_EQ(platform.screen->boundsSize(), (Size{375, 667}));

  // Application: only web links open by default, each one is logged.
  EXPECT_TRUE(platform.application->canOpenURL("HTTPS://apps.example/app"));
  EXPECT_FALSE(platform.application->canOpenURL("itms-apps://app/1"));
  platform.application->openURL("http://maps.example/?ll=37.5,127.0");
  EXPECT_EQ(linux.application->openedURLs(),
            std::vector<std::string>{"http://maps.example/?ll=37.5,127.0"});
  EXPECT_EQ(lines, std::vector<std::string>{"open URL: http://maps.example/?ll=37.5,127.0"});
  EXPECT_EQ(platform.application->bundleName(), "test_linux");
  EXPECT_FALSE(platform.application->isStatusBarHidden());
  platform.application->setStatusBarHidden(true);
  EXPECT_TRUE(platform.application->isStatusBarHidden());
  EXPECT_EQ(platform.device->documentsDirectory(), folder.path().string());

  DataHome home(folder.path());
  auto fallback = makeDefaultPlatform();
  ASSERT_TRUE(fallback && fallback->mainQueue && fallback->log && fallback->device);
  EXPECT_EQ(fallback->device->documentsDirectory(),
            (folder.path() / "tovani" / "Documents").string());
}

TEST(LinuxLog, WritesPrefixedLinesToStandardErrorUntilTheHostTakesThem) {
  TempFolder folder;
  const std::string captured = (folder.path() / "stderr").string();
  fflush(stderr);
  const int saved = dup(2);
  FILE* file = fopen(captured.c_str(), "w");
  dup2(fileno(file), 2);
  LinuxLog log;
  log.write("ad list received");
  std::vector<std::string> taken;
  log.setSink([&](const std::string& line) { taken.push_back(line); });
  log.write("to the host");
  fflush(stderr);
  dup2(saved, 2);
  close(saved);
  fclose(file);
  std::ifstream in(captured);
  std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(text, "[tovani] ad list received\n");
  EXPECT_EQ(taken, std::vector<std::string>{"to the host"});
}

}  // namespace
}  // namespace tovani::linux
