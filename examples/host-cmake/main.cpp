// A C++ host that finds the SDK with find_package(tovani), shows one ad over a headless
// Linux platform and exits 0 when the result is the expected one. The environment says where
// the ad server is (see examples/host-c/main.c for the variables).
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>

#include <tovani/TovaniSDK.hpp>
#include <tovani/linux/LinuxPlatform.hpp>

namespace {

struct Host : tovani::TovaniDelegate {
  int last = -1;
  void tovaniCallBack(int32_t result) override { last = result; }
};

std::string env(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

}  // namespace

int main() {
  const int expected = env("TOVANI_EXPECT").empty() ? tovani::TOVANI_RESULT_REWARDED
                                                    : std::atoi(env("TOVANI_EXPECT").c_str());
  tovani::linux::LinuxPlatformOptions options;
  std::istringstream mappings(env("TOVANI_HOST_MAPPINGS"));
  for (std::string entry; std::getline(mappings, entry, ';');) {
    if (!entry.empty()) options.http.connectTo.push_back(entry);
  }
  options.http.caFile = env("TOVANI_CA_FILE");
  if (!env("TOVANI_DOCUMENTS").empty()) options.device.documentsDirectory = env("TOVANI_DOCUMENTS");
  options.player.playbackRate = 8.0;
  options.reachability.overrideFlags = 0x2;
  auto platform = tovani::linux::makeLinuxPlatform(options);

  auto host = std::make_shared<Host>();
  tovani::TovaniSDK::setPlatform(platform.platform);
  tovani::TovaniSDK::init(
      "DEMO_MEDIA", "DEMO_SLOT",
      tovani::TovaniSDK::CategoryList{std::string(tovani::TovaniCategory::CASUAL)});
  tovani::TovaniSDK::delegate(host);
  auto root = std::make_shared<tovani::View>();
  root->frame = {0, 0, 375, 667};

  // Until the videos of a cold start are cached every showing answers "no ad": ask again.
  for (int attempt = 0; attempt < 60; ++attempt) {
    host->last = -1;
    tovani::TovaniSDK::tovaniShow(root);
    if (!platform.mainLoop->runUntil([&] { return host->last >= 0; }, 90)) break;
    std::printf("attempt %d: result %d\n", attempt + 1, host->last);
    if (host->last != tovani::TOVANI_RESULT_NO_AD) break;
    platform.mainLoop->runFor(0.5);
  }
  std::printf("result %d, expected %d\n", host->last, expected);
  return host->last == expected ? 0 : 1;
}
