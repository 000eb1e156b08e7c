// The main loop, reachability and the bundled platform with its device.
#include <gio/gio.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <ranges>
#include <thread>

#include "tovani/linux/LinuxPlatform.hpp"

namespace tovani::linux {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// A scratch folder, also made the data home so that nothing lands in the real home folder.
struct TempHome {
  char name[26] = "/tmp/tovani-system-XXXXXX";
  std::string path = mkdtemp(name);
  TempHome() { setenv("XDG_DATA_HOME", path.c_str(), 1); }
  ~TempHome() { fs::remove_all(path); }
  std::string operator/(const std::string& relative) const { return path + "/" + relative; }
};

TEST(MainLoop, TasksFromAnyThreadRunLaterOnTheLoopThreadInOrderAndDieWithIt) {
  auto sentinel = std::make_shared<int>(0);
  {
    MainLoop loop(MainContextChoice::Private);
    std::vector<std::vector<int>> seen(4);  // per poster, filled on the loop thread
    std::vector<std::string> order, reports;
    double delayed = -1;
    loop.setErrorReporter([&](const std::string& line) { reports.push_back(line); });
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::jthread> posters;
    for (int t = 0; t < 4; ++t) {
      posters.emplace_back([&, t] {
        for (int i = 0; i < 300; ++i)
          loop.post([&, t, i] { seen[t].push_back(loop.isLoopThread() ? i : -1); });
        loop.postAfter(0.25, [&] {
          delayed = loop.isLoopThread() ? (std::chrono::steady_clock::now() - start) / 1.0s : -1;
        });
      });
    }
    posters.clear();
    loop.post([] { throw std::runtime_error("boom"); });
    loop.post([&] {
      loop.post([&] { order.push_back("inner"); });
      order.push_back("outer");
    });
    EXPECT_TRUE(loop.runUntil([&] { return delayed > 0; }, 3.0));
    EXPECT_TRUE(delayed >= 0.24 && delayed < 0.6) << delayed;
    EXPECT_EQ(order, (std::vector<std::string>{"outer", "inner"}));
    for (const auto& list : seen) EXPECT_TRUE(std::ranges::equal(list, std::views::iota(0, 300)));
    EXPECT_TRUE(reports.size() == 1 && reports[0].find("boom") != std::string::npos);
    EXPECT_FALSE(loop.isLoopThread());  // only while the loop runs
    loop.postAfter(30.0, [sentinel] { ++*sentinel; });
    loop.post([sentinel] { ++*sentinel; });
  }
  EXPECT_TRUE(sentinel.use_count() == 1 && *sentinel == 0);  // released without running
}

TEST(LinuxReachability, FollowsTheDefaultRouteAndItsInterface) {
  TempHome dir;
  for (std::string name : {"eth0", "wwan0", "down0"}) fs::create_directories(dir / ("net/" + name));
  std::ofstream(dir / "net/eth0/flags") << "0x1003";
  std::ofstream(dir / "net/wwan0/flags") << "0x1091";
  std::ofstream(dir / "net/down0/flags") << "0x1002";
  ReachabilityOptions options;
  options.networkMonitor = false;  // the routing table, read where a system has no monitor
  options.ipv4RouteTable = dir / "route";
  options.ipv6RouteTable = dir / "route6";
  options.interfaceFolder = dir / "net";
  const auto v4 = [](const std::string& iface, const char* flags = "0003") {
    return iface + "\t00000000\t0102A8C0\t" + flags + "\t0\t0\t0\t00000000\n";
  };
  const std::string zeros(32, '0'), v6 = zeros + " 00 " + zeros + " 00 " + zeros;
  const struct {
    std::string v4, v6;
    uint32_t flags;
  } cases[] = {
      {v4("eth0"), "", 0x2},
      {v4("wwan0"), "", 0x40002},
      {v4("wwan0") + v4("eth0"), "", 0x2},
      {v4("eth0") + v4("wwan0"), "", 0x2},  // any other usable route is not cellular
      {v4("down0"), "", 0},
      {v4("eth0", "0002"), "", 0},                                     // the route itself is not up
      {"eth0\t0000A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\n", "", 0},  // no default route
      {"", v6 + " 00000400 00000002 00000000 00000003 eth0\n", 0x2},
      {"", v6 + " ffffffff 00000001 00000000 00200200 lo\n", 0},  // the kernel's "unreachable"
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.v4 + c.v6);
    std::ofstream(dir / "route")
        << "Iface\tDestination\tGateway\tFlags\tRefCnt\tUse\tMetric\tMask\n" + c.v4;
    std::ofstream(dir / "route6") << c.v6;
    EXPECT_EQ(LinuxReachability(options).internetFlags(), c.flags);
  }
}

TEST(LinuxReachability, FollowsGiosNetworkMonitor) {
  const struct {
    bool available;
    GNetworkConnectivity connectivity;
    bool metered;
    uint32_t flags;
  } cases[] = {
      {true, G_NETWORK_CONNECTIVITY_FULL, false, 0x2},
      {true, G_NETWORK_CONNECTIVITY_FULL, true, 0x40002},
      {true, G_NETWORK_CONNECTIVITY_LIMITED, false, 0x2},
      {true, G_NETWORK_CONNECTIVITY_PORTAL, false, 0x12},
      {true, G_NETWORK_CONNECTIVITY_LOCAL, false, 0},
      {false, G_NETWORK_CONNECTIVITY_FULL, true, 0},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(detail::monitorFlags(c.available, c.connectivity, c.metered), c.flags)
        << c.available << " " << c.connectivity << " " << c.metered;
  }
  // The adapter answers with the system's monitor, and says so when it has to fall back.
  struct Lines : Log {
    void write(const std::string& line) override { lines.push_back(line); }
    std::vector<std::string> lines;
  };
  auto log = std::make_shared<Lines>();
  GNetworkMonitor* monitor = g_network_monitor_get_default();
  const bool real = std::string(G_OBJECT_TYPE_NAME(monitor)) != "GNetworkMonitorBase";
  const auto flags = LinuxReachability({}, log).internetFlags();
  if (real) {
    EXPECT_EQ(flags, detail::monitorFlags(g_network_monitor_get_network_available(monitor),
                                          g_network_monitor_get_connectivity(monitor),
                                          g_network_monitor_get_network_metered(monitor)));
    EXPECT_TRUE(log->lines.empty());
  } else {
    ASSERT_EQ(log->lines.size(), 1u);
    EXPECT_NE(log->lines[0].find("reading the routing table"), std::string::npos);
  }
}

TEST(LinuxPlatform, BundlesEveryPortDeliversHostEventsOnTheLoopAndKeepsFilesPrivate) {
  TempHome home;
  std::vector<std::string> lines;
  LinuxPlatformOptions options;
  options.mainContext = MainContextChoice::Private;
  options.logSink = [&](const std::string& line) { lines.push_back(line); };
  auto linux = makeLinuxPlatform(options);
  const Platform& platform = *linux.platform;
  ASSERT_TRUE(platform.mainQueue && platform.clock && platform.http && platform.players &&
              platform.webViews && platform.screen && platform.application && platform.device &&
              platform.reachability && platform.log);
  EXPECT_EQ(platform.mainQueue.get(), linux.mainLoop.get());

  std::vector<std::pair<AppEvent, Size>> events;
  platform.application->setEventHandler([&](AppEvent event) {
    EXPECT_TRUE(linux.mainLoop->isLoopThread());
    events.push_back({event, platform.screen->boundsSize()});
  });
  linux.rotate(DeviceOrientation::LandscapeRight);
  std::thread([&] { linux.application->sendEvent(AppEvent::WillResignActive); }).join();
  EXPECT_TRUE(events.empty());
  ASSERT_TRUE(linux.mainLoop->runUntil([&] { return events.size() == 2; }, 2));
  EXPECT_EQ(events[0], std::pair(AppEvent::OrientationDidChange, Size{667, 375}));
  EXPECT_EQ(events[1].first, AppEvent::WillResignActive);
  // Only web links open by default, and each one goes to the log.
  EXPECT_TRUE(platform.application->canOpenURL("HTTPS://apps.example/app"));
  EXPECT_FALSE(platform.application->canOpenURL("itms-apps://app/1"));
  platform.application->openURL("http://maps.example/");
  EXPECT_EQ(lines, std::vector<std::string>{"open URL: http://maps.example/"});

  // The documents folder is private and stays under the data home, whatever the app's name.
  const std::string documents = platform.device->documentsDirectory();
  struct stat info {};
  EXPECT_TRUE(stat(documents.c_str(), &info) == 0 && (info.st_mode & 0777) == 0700);
  options.device.appName = "../../escape";
  EXPECT_EQ(LinuxDevice(options.device).documentsDirectory(), home / "tovani/Documents");
  EXPECT_EQ(documents, home / "tovani/Documents");
  EXPECT_EQ(platform.device->fileCreationTime(home / "missing"), std::nullopt);
  // procfs records no birth time: the last write stands in.
  ASSERT_EQ(stat("/proc/self/stat", &info), 0);
  EXPECT_NEAR(platform.device->fileCreationTime("/proc/self/stat").value_or(0), info.st_mtim.tv_sec,
              1);
}

}  // namespace
}  // namespace tovani::linux
