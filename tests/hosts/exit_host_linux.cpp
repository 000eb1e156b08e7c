// A host on the real Linux adapters that leaves at a chosen moment against the development
// ad server: exit_host_linux <downloads|showing|endcard> <return|exit>. The exit tests run it
// as a child process; it must end with status 0, whatever curl, GStreamer and the main loop
// are doing at that moment.
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "tovani/TovaniSDK.hpp"
#include "tovani/adserver/AdServer.hpp"
#include "tovani/linux/LinuxPlatform.hpp"
#include "viewer/tovaniViewer.hpp"

#pragma push_macro("linux")
#undef linux

namespace {

namespace fs = std::filesystem;
using namespace tovani;

struct Host : TovaniDelegate {
  void tovaniCallBack(int32_t) override {}
};

// The host's own objects live as long as the process, as an app's do: only the SDK's state
// is torn down (or not) by the exit itself.
adserver::AdServer* server = nullptr;
linux::LinuxPlatform* adapters = nullptr;

// The ad server stands for a remote machine: it goes away before the TLS library's own exit
// handler runs, so only the SDK's threads are left to meet it.
void stopServer() {
  if (server) server->stop();
}

int videoRequests() {
  int n = 0;
  for (const auto& r : server->requests()) n += r.route == "video";
  return n;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 64;
  const std::string moment = argv[1], how = argv[2];

  server = new adserver::AdServer({});
  server->start();
  // A slow video keeps its download in flight when the host leaves.
  if (moment == "downloads") server->setFaults(R"({"video": {"delay": 2}})");
  std::atexit(stopServer);
  std::string documents = (fs::temp_directory_path() / "tovani-exit-XXXXXX").string();
  if (!mkdtemp(documents.data())) return 65;

  linux::LinuxPlatformOptions o;
  o.mainContext = linux::MainContextChoice::Private;
  for (const auto& host : {server->hosts().production, server->hosts().cdnHost}) {
    o.http.connectTo.push_back(host + ":80:127.0.0.1:" + std::to_string(server->httpPort()));
    o.http.connectTo.push_back(host + ":443:127.0.0.1:" + std::to_string(server->httpsPort()));
  }
  o.http.caFile = server->caFile().string();
  o.player.playbackRate = 8;
  o.device.documentsDirectory = documents;
  o.reachability.overrideFlags = 0x2;  // the server is on loopback: online whatever the routes
  o.logSink = [](const std::string&) {};
  adapters = new linux::LinuxPlatform(linux::makeLinuxPlatform(o));

  TovaniSDK::setPlatform(adapters->platform);
  TovaniSDK::init("DEMO_MEDIA", "DEMO_SLOT");
  auto host = std::make_shared<Host>();
  TovaniSDK::delegate(host);
  auto& loop = *adapters->mainLoop;
  bool reached = false;
  if (moment == "downloads") {
    reached = loop.runUntil([] { return videoRequests() > 0; }, 30);
  } else {
    // Both videos of the default scenario cached, then a showing up to its midpoint or its
    // end card.
    loop.runUntil(
        [&] {
          return fs::exists(documents + "/video_30s.mp4") &&
                 fs::exists(documents + "/video_20s.mp4");
        },
        30);
    auto viewer = TovaniSDK::sharedInstance()->getMainViewer();
    TovaniSDK::tovaniShow(std::make_shared<View>());
    reached = loop.runUntil(
        [&] { return moment == "endcard" ? viewer->tnVideoPlayState == 2 : viewer->tnState >= 3; },
        60);
  }
  std::error_code ec;
  fs::remove_all(documents, ec);
  if (!reached) return 66;
  if (how == "exit") std::exit(0);
  return 0;
}

#pragma pop_macro("linux")
