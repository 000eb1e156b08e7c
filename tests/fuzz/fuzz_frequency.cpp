// Fuzz target: server text as an ad's frequency rule ("d|start|end|max", "p|days|max", anything
// else), checked against a store holding the ad's video and two impressions. The answer is the
// cached video's path or none; whatever the rule, the store keeps every row and table it had
// and the video stays marked usable.
//
//   build/fuzz/tests/fuzz/fuzz_frequency build/fuzz/corpus-frequency tests/fuzz/corpus/frequency
#include <cstdint>
#include <string>

#include "support/ViewerFixture.hpp"

namespace {

using namespace tovani::test;

// Never destroyed: the SDK's process-wide state is gone by the time globals are torn down.
ViewerFixture* world = nullptr;
std::string storeShape;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

std::string shape() {
  return world->cell(
      "select (select count(*) from sqlite_master) || '/' || (select count(*) from tn_ads_freq) "
      "|| '/' || (select group_concat(use_flag) from tn_adverts)");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  world = new ViewerFixture;
  world->start();
  world->addCached("7", "ad30.mp4");
  world->addShowings("7", "datetime('now')", 2);
  storeShape = shape();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string rule(reinterpret_cast<const char*>(data), size);
  const auto path = world->viewer()->getFreqPassVideoPath(rule, "ad30.mp4", std::string("7"));
  if (path) require(*path == world->tp.documentsFile("ad30.mp4"));
  require(shape() == storeShape);
  return 0;
}
