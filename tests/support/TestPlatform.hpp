#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/FakePorts.hpp"
#include "support/ScriptedHttp.hpp"
#include "support/ScriptedPlayer.hpp"
#include "support/VirtualMainQueue.hpp"
#include "tovani/Platform.hpp"
#include "tovani/TovaniDelegate.hpp"

namespace tovani::test {

// Every port faked, with a fresh documents folder that is removed afterwards. Building
// one also resets the SDK's process-wide state, so each test starts as a new process.
class TestPlatform {
 public:
  TestPlatform();
  ~TestPlatform();
  TestPlatform(const TestPlatform&) = delete;
  TestPlatform& operator=(const TestPlatform&) = delete;

  std::shared_ptr<VirtualMainQueue> queue = std::make_shared<VirtualMainQueue>();
  std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>(*queue);
  std::shared_ptr<ScriptedHttp> http = std::make_shared<ScriptedHttp>(queue);
  std::shared_ptr<ScriptedPlayerFactory> players = std::make_shared<ScriptedPlayerFactory>(queue);
  std::shared_ptr<RecordingWebViewFactory> webViews =
      std::make_shared<RecordingWebViewFactory>(queue);
  std::shared_ptr<FakeScreen> screen = std::make_shared<FakeScreen>();
  std::shared_ptr<FakeApplication> app = std::make_shared<FakeApplication>();
  std::shared_ptr<FakeDevice> device = std::make_shared<FakeDevice>();
  std::shared_ptr<FakeReachability> reachability = std::make_shared<FakeReachability>();
  std::shared_ptr<CapturedLog> log = std::make_shared<CapturedLog>();
  std::shared_ptr<Platform> platform;

  const std::string& documents() const { return device->documents; }
  std::string documentsFile(const std::string& name) const { return documents() + "/" + name; }
  void advance(double seconds) { queue->advance(seconds); }
  void runUntilIdle() { queue->runUntilIdle(); }
};

// The process-wide state of the SDK back to load time: the facade singleton, the viewer's
// shared variables and the notification centre.
void resetSdkProcessState();

// Records every callback a host receives.
class RecordingDelegate : public TovaniDelegate {
 public:
  void tovaniCallBack(int32_t result) override { results.push_back(result); }
  std::vector<int32_t> results;
};

// Store helpers working on the file directly, independent of the SDK's own store code.
void createStoreFile(const std::string& path);  // the shipped schema, no rows
void execOnStore(const std::string& path, const std::string& sql);
std::vector<std::vector<std::string>> queryStore(const std::string& path, const std::string& sql);
// Writes `content` to `path`, creating or replacing the file.
void writeFile(const std::string& path, const std::string& content);
std::string readFile(const std::string& path);

}  // namespace tovani::test
