// A host on the test platform that leaves at a chosen moment: exit_host
// <downloads|showing|endcard> <return|exit>. The exit tests run it as a child process; it must
// end with status 0 whatever is on screen or in flight.
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/ViewerFixture.hpp"

namespace {

// The host's own objects live as long as the process, as an app's do: only the SDK's state
// is torn down (or not) by the exit itself.
tovani::test::ViewerFixture* app = nullptr;

}  // namespace

int main(int argc, char** argv) {
  using namespace tovani;
  using namespace tovani::test;
  if (argc != 3) return 64;
  const std::string moment = argv[1], how = argv[2];
  app = new ViewerFixture;
  auto& f = *app;
  f.addCached("7", "ad30.mp4");
  f.tp.players->durationByFileName["ad30.mp4"] = 30;
  f.tp.http->on([](const std::string& url) { return url.find("?xml=vast&") != std::string::npos; },
                answer(vast(adXml({.skipUse = "Y"}))));
  if (moment == "downloads") {
    // A video download and an ad-list refresh still on their way when the host leaves.
    f.addRow("8", "next.mp4");
    f.tp.http->onExact(videoUrl("next.mp4"), answer("video", 100));
    f.start();
    f.answerAdList(R"({"adverts":[]})", 100);
    f.viewer()->getTNJsonList();
  } else {
    f.start();
    TovaniSDK::tovaniShow(f.hostRoot);
    f.tp.runUntilIdle();
    f.tp.advance(moment == "endcard" ? 31 : 10);
    if (f.viewer()->tnVideoPlayState != (moment == "endcard" ? 2 : 1)) return 66;
  }
  // The host's own screen goes first, as a window closed before leaving; the SDK is then the
  // only owner of its viewer.
  f.hostRoot.reset();
  std::error_code ec;
  std::filesystem::remove_all(f.tp.documents(), ec);
  if (how == "exit") std::exit(0);
  return 0;
}
