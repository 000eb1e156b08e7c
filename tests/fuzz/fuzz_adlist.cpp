// Fuzz target: arbitrary ad-list bodies reach the sync's completion on the test platform, which
// stores adverts and starts the video queue. Every video download succeeds, so hostile names
// really become files; the checks below catch any that lands where it must not. Each input gets
// a fresh SDK, so libFuzzer's leak check stays on.
//
//   build/fuzz/tests/fuzz/fuzz_adlist -dict=tests/fuzz/json.dict -max_len=65536 \
//     build/fuzz/corpus-adlist tests/fuzz/corpus/adlist
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/ViewerFixture.hpp"
#include "viewer/owned_files.hpp"
#include "viewer/video_files.hpp"

namespace {

using World = tovani::test::ViewerFixture;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  World w;
  w.tp.http->on([](const std::string&) { return true; }, tovani::test::answer("video"));
  w.answerAdList(std::string(reinterpret_cast<const char*>(data), size));
  w.start();
  w.tp.runUntilIdle();

  for (const auto& url : w.downloadUrls()) require(tovani::isDownloadableUrl(url));
  // Only the store, its side files, the record of the SDK's own files and safely named videos
  // may sit in the documents folder.
  for (const auto& entry : std::filesystem::directory_iterator(w.tp.documents())) {
    const std::string name = entry.path().filename().string();
    if (name.rfind("tnad_005.data", 0) == 0 || name == tovani::kOwnedFilesManifest) continue;
    require(!tovani::videoFileNameProblem(name, "tnad_005.data"));
  }
  return 0;
}
