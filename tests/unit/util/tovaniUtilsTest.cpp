#include <gtest/gtest.h>

#include <stdexcept>
#include <tuple>
#include <vector>

#include "net/Reachability.hpp"
#include "net/tovaniUtils.hpp"

namespace tovani {
namespace {

// The platform's ports the helpers use: requests and tasks wait until the test answers or
// runs them.
struct FakePorts : Device, Http, MainQueue, Log, ReachabilitySource {
  std::optional<std::string> model, version;
  std::optional<uint32_t> flags;
  DataRequest sent;
  DataCompletion answer;
  DownloadRequest fetch;
  DownloadCompletion fetched;
  std::vector<Task> tasks;
  std::vector<std::string> lines;
  std::optional<std::string> hardwareModel() const override { return model; }
  std::optional<std::string> osVersion() const override { return version; }
  std::optional<Carrier> carrier() const override { return std::nullopt; }
  std::optional<std::string> advertisingIdentifier() const override { return std::nullopt; }
  std::string documentsDirectory() const override { return "/data/app/Documents"; }
  std::optional<double> fileCreationTime(const std::string&) const override { return 0.0; }
  void dataRequest(DataRequest r, DataCompletion done) override { sent = r, answer = done; }
  void download(DownloadRequest r, DownloadCompletion done) override { fetch = r, fetched = done; }
  void beacon(const std::string&) override {}
  std::optional<std::string> fetchBlocking(const std::string&) override { return std::nullopt; }
  void post(Task task) override { tasks.push_back(std::move(task)); }
  void postAfter(double, Task task) override { tasks.push_back(std::move(task)); }
  void write(const std::string& line) override { lines.push_back(line); }
  std::optional<uint32_t> internetFlags() const override { return flags; }
};

class PlatformPorts : public ::testing::Test {
 protected:
  std::shared_ptr<FakePorts> ports = std::make_shared<FakePorts>();
  // Every port but the clock, players, web views, screen and application.
  Platform platform{ports, {}, ports, {}, {}, {}, {}, ports, ports, ports};
  // The pending completions and tasks hold the log, which is `ports` itself.
  ~PlatformPorts() override { ports->answer = {}, ports->fetched = {}, ports->tasks.clear(); }
};

// Answers arrive only when the network answers, or later on the main queue when the
// platform has no network at all. Whatever the host's completion throws stops at this
// boundary, logged, instead of unwinding into the adapter and the host's run loop.
TEST_F(PlatformPorts, RequestsAreShortIdleGetsAnsweredLaterWithCompletionsContained) {
  std::vector<std::string> delivered;
  tovaniUtils::requestNetwork(platform, "http://h/list", [&](std::string body, auto...) {
    delivered.push_back(body);
    throw std::out_of_range("index 1 beyond bounds");
  });
  tovaniUtils::requestDownload(platform, "http://cdn/v.mp4", [&](auto file, auto...) {
    delivered.push_back(file.value_or("none"));
    throw 42;
  });
  const DataRequest& sent = ports->sent;
  EXPECT_EQ(sent.url + " " + sent.method + " " + sent.body, "http://h/list GET ");
  EXPECT_EQ(sent.idleTimeoutSeconds, 3.0);
  EXPECT_TRUE(sent.allowsCellularAccess);
  EXPECT_EQ(ports->fetch.url, "http://cdn/v.mp4");
  EXPECT_EQ(ports->fetch.idleTimeoutSeconds, 3.0);
  EXPECT_EQ(ports->fetch.temporaryDirectory, "/data/app/Documents");
  EXPECT_TRUE(delivered.empty());

  EXPECT_NO_THROW(ports->answer("[]", HttpResponse{200, {}}, std::nullopt));
  EXPECT_NO_THROW(ports->fetched("/data/app/Documents/.tmp1", {}, std::nullopt));
  EXPECT_EQ(delivered, (std::vector<std::string>{"[]", "/data/app/Documents/.tmp1"}));
  ASSERT_EQ(ports->lines.size(), 2u);
  EXPECT_NE(ports->lines[0].find("index 1 beyond bounds"), std::string::npos);

  platform.http = nullptr;
  tovaniUtils::requestNetwork(platform, "http://h/ad", [&](auto, auto, auto error) {
    delivered.push_back(error ? "error" : "no error");
  });
  ASSERT_EQ(delivered.size(), 2u) << "never inside the call";
  ports->tasks.at(0)();
  EXPECT_EQ(delivered.back(), "error");
}

TEST_F(PlatformPorts, QueryParametersCarryTheEncodedDeviceValuesOrNothing) {
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceName(*ports), "") << "no model, no parameter";
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceVersion(*ports), "") << "no version, no parameter";
  ports->version = "10.3";
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceVersion(*ports), "&osv=10.3");
  ports->model = "iPhone9,3", ports->version = "";
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceName(*ports) +
                tovaniUtils::queryParameterForDeviceVersion(*ports),
            "&device=iPhone9%2C3&osv=");
}

// 0x4 is "connection required", 0x8 and 0x20 a connection that comes up by itself, 0x10 one
// that needs the user; flags that cannot be read, or no source at all, mean no network.
TEST_F(PlatformPorts, ReachabilityClassifiesTheInternetFlags) {
  // clang-format off
  const std::tuple<std::optional<uint32_t>, NetworkStatus, bool> cases[] = {
      {0, NotReachable, false}, {0x2, ReachableViaWiFi, false}, {0x6, NotReachable, true},
      {0x2E, ReachableViaWiFi, true}, {0x3E, NotReachable, true}, {0xE, ReachableViaWiFi, true},
      {0x16, NotReachable, true}, {0x40002, ReachableViaWWAN, false},
      {0x4003E, ReachableViaWWAN, true}, {0x4003C, NotReachable, true},
      {std::nullopt, NotReachable, false}};
  // clang-format on
  for (const auto& [flags, status, required] : cases) {
    ports->flags = flags;
    const auto r = Reachability::reachabilityForInternetConnection(ports);
    EXPECT_EQ(r->currentReachabilityStatus(), status) << flags.value_or(0xFFFFFFFF);
    EXPECT_EQ(r->connectionRequired(), required) << flags.value_or(0xFFFFFFFF);
  }
  EXPECT_EQ(Reachability::reachabilityForInternetConnection(nullptr)->currentReachabilityStatus(),
            NotReachable);
}

}  // namespace
}  // namespace tovani
