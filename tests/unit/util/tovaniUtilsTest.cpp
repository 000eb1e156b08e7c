#include <gtest/gtest.h>

#include <deque>
#include <stdexcept>
#include <vector>

#include "net/tovaniUtils.hpp"

namespace tovani {
namespace {

class FakeDevice : public Device {
 public:
  std::optional<std::string> model;
  std::optional<std::string> version;
  std::optional<std::string> hardwareModel() const override { return model; }
  std::optional<std::string> osVersion() const override { return version; }
  std::optional<Carrier> carrier() const override { return std::nullopt; }
  std::optional<std::string> advertisingIdentifier() const override { return std::nullopt; }
  std::string documentsDirectory() const override { return "/data/app/Documents"; }
  std::optional<double> fileCreationTime(const std::string&) const override { return 0.0; }
};

// Holds every request; the test answers them, as the network would, from the main queue.
class FakeHttp : public Http {
 public:
  std::vector<DataRequest> dataRequests;
  std::vector<DataCompletion> dataCompletions;
  std::vector<DownloadRequest> downloads;
  std::vector<DownloadCompletion> downloadCompletions;

  void dataRequest(DataRequest request, DataCompletion done) override {
    dataRequests.push_back(std::move(request));
    dataCompletions.push_back(std::move(done));
  }
  void download(DownloadRequest request, DownloadCompletion done) override {
    downloads.push_back(std::move(request));
    downloadCompletions.push_back(std::move(done));
  }
  void beacon(const std::string&) override {}
  std::optional<std::string> fetchBlocking(const std::string&) override { return std::nullopt; }
};

class FakeMainQueue : public MainQueue {
 public:
  std::deque<Task> tasks;
  void post(Task task) override { tasks.push_back(std::move(task)); }
  void postAfter(double, Task task) override { tasks.push_back(std::move(task)); }
  void runAll() {
    while (!tasks.empty()) {
      Task task = std::move(tasks.front());
      tasks.pop_front();
      task();
    }
  }
};

class RecordingLog : public Log {
 public:
  std::vector<std::string> lines;
  void write(const std::string& line) override { lines.push_back(line); }
};

class RequestHelpers : public ::testing::Test {
 protected:
  RequestHelpers() {
    platform.http = http;
    platform.mainQueue = queue;
    platform.device = device;
    platform.log = log;
  }
  std::shared_ptr<FakeHttp> http = std::make_shared<FakeHttp>();
  std::shared_ptr<FakeMainQueue> queue = std::make_shared<FakeMainQueue>();
  std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
  std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
  Platform platform;
};

TEST_F(RequestHelpers, DataRequestIsAGetWithAShortIdleTimeoutOverAnyNetwork) {
  std::vector<std::string> bodies;
  tovaniUtils::requestNetwork(
      platform, "http://h/list?xml=json",
      [&](std::string body, HttpResponse response, std::optional<HttpError> error) {
        EXPECT_EQ(response.status, 200);
        EXPECT_FALSE(error);
        bodies.push_back(body);
      });
  ASSERT_EQ(http->dataRequests.size(), 1u);
  const DataRequest& sent = http->dataRequests[0];
  EXPECT_EQ(sent.url, "http://h/list?xml=json");
  EXPECT_EQ(sent.method, "GET");
  EXPECT_EQ(sent.body, "");
  EXPECT_DOUBLE_EQ(sent.idleTimeoutSeconds, 3.0);
  EXPECT_TRUE(sent.allowsCellularAccess);
  EXPECT_TRUE(bodies.empty()) << "nothing is delivered before the network answers";

  http->dataCompletions[0]("[]", HttpResponse{200, {}}, std::nullopt);
  EXPECT_EQ(bodies, std::vector<std::string>{"[]"});
}

TEST_F(RequestHelpers, DownloadGoesToATemporaryFileInsideTheDocumentsFolder) {
  std::optional<std::string> received;
  tovaniUtils::requestDownload(platform, "http://cdn/v.mp4",
                               [&](std::optional<std::string> file, HttpResponse,
                                   std::optional<HttpError>) { received = file; });
  ASSERT_EQ(http->downloads.size(), 1u);
  EXPECT_EQ(http->downloads[0].url, "http://cdn/v.mp4");
  EXPECT_DOUBLE_EQ(http->downloads[0].idleTimeoutSeconds, 3.0);
  EXPECT_EQ(http->downloads[0].temporaryDirectory, "/data/app/Documents");

  http->downloadCompletions[0]("/data/app/Documents/.tmp1", HttpResponse{200, {}}, std::nullopt);
  EXPECT_EQ(received, "/data/app/Documents/.tmp1");
}

TEST_F(RequestHelpers, AnErrorThrownByTheCompletionIsContainedAndLogged) {
  tovaniUtils::requestNetwork(platform, "http://h/ad",
                              [](std::string, HttpResponse, std::optional<HttpError>) {
                                throw std::out_of_range("index 1 beyond bounds");
                              });
  tovaniUtils::requestDownload(
      platform, "http://h/db",
      [](std::optional<std::string>, HttpResponse, std::optional<HttpError>) { throw 42; });
  EXPECT_NO_THROW(http->dataCompletions[0]("<VAST/>", HttpResponse{200, {}}, std::nullopt));
  EXPECT_NO_THROW(
      http->downloadCompletions[0](std::nullopt, HttpResponse{}, HttpError{28, "timed out"}));
  ASSERT_EQ(log->lines.size(), 2u);
  EXPECT_NE(log->lines[0].find("index 1 beyond bounds"), std::string::npos);
}

TEST_F(RequestHelpers, APlatformWithoutHttpStillAnswersLaterWithAnError) {
  platform.http = nullptr;
  std::optional<HttpError> failure;
  tovaniUtils::requestNetwork(
      platform, "http://h/ad",
      [&](std::string, HttpResponse, std::optional<HttpError> error) { failure = error; });
  EXPECT_FALSE(failure) << "never inside the call";
  queue->runAll();
  EXPECT_TRUE(failure);
}

TEST(QueryParameters, CarryTheEncodedDeviceValuesOrNothing) {
  FakeDevice device;
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceName(device), "");
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceVersion(device), "");
  device.model = "iPhone9,3";
  device.version = "10.3";
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceName(device), "&device=iPhone9%2C3");
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceVersion(device), "&osv=10.3");
  device.version = "";
  EXPECT_EQ(tovaniUtils::queryParameterForDeviceVersion(device), "&osv=");
}

}  // namespace
}  // namespace tovani
