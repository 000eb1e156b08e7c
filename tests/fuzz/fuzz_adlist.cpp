// Fuzz target: arbitrary ad-list bodies reach the sync's completion on the test platform, which
// stores adverts and starts the video queue. Every video download succeeds, so hostile names
// really become files; the checks below catch any that lands where it must not.
//
// Build with the fuzz preset and run from the repository root:
//   cmake --preset fuzz && cmake --build build/fuzz --target fuzz_adlist
//   mkdir -p build/fuzz/corpus-adlist
//   TMPDIR=/dev/shm build/fuzz/tests/fuzz/fuzz_adlist -max_total_time=60 -max_len=65536 \
//     build/fuzz/corpus-adlist
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/ViewerFixture.hpp"
#include "viewer/video_files.hpp"

namespace {

using World = tovani::test::ViewerFixture;

// One started SDK for the whole run; its documents folder goes when the process exits.
World& world() {
  static World w;
  static const bool started = [] {
    w.answerAdList("{}");
    w.start();
    w.tp.runUntilIdle();
    return true;
  }();
  (void)started;
  return w;
}

// Only the store, its side files and safely named videos may sit in the documents folder.
void checkDocumentsFolder(const World& w) {
  for (const auto& entry : std::filesystem::directory_iterator(w.tp.documents())) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("tnad_005.data", 0) == 0) continue;
    if (tovani::videoFileNameProblem(name, "tnad_005.data")) std::abort();
    std::filesystem::remove(entry.path());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World& w = world();
  w.tp.http->clearRoutes();
  w.tp.http->clearRecorded();
  w.tp.http->on([](const std::string&) { return true; }, tovani::test::answer("video"));
  w.answerAdList(std::string(reinterpret_cast<const char*>(data), size));

  w.viewer()->getTNJsonList();
  w.tp.runUntilIdle();

  for (const auto& url : w.downloadUrls()) {
    if (!tovani::isDownloadableUrl(url)) std::abort();
  }
  checkDocumentsFolder(w);
  // Keep every run independent and the store small.
  tovani::test::execOnStore(w.storePath(), "delete from tn_adverts; delete from tn_device");
  return 0;
}
