// libFuzzer target: arbitrary bytes as the ad server's VAST answer. The parse and every
// read the viewer makes must end in a tree, none or a PlatformError; never a crash, a leak
// or undefined behaviour.
//
// Build with the fuzz preset; run from the repository root (new inputs go to the first
// folder; the sample answers seed it):
//   cmake --preset fuzz && cmake --build build/fuzz --target fuzz_xml
//   mkdir -p build/fuzz/corpus-xml
//   build/fuzz/tests/fuzz/fuzz_xml -max_total_time=60 -dict=tests/fuzz/xml.dict \
//     build/fuzz/corpus-xml tests/data/vast
#include <cstddef>
#include <cstdint>
#include <string>

#include "util/PlatformError.hpp"
#include "xml/XMLController.hpp"
#include "xml/XmlValue.hpp"

namespace {

constexpr const char* kAdPaths[] = {
    "id",
    "InLine.Creatives.Creative.Linear.MediaFiles.MediaFile.text",
    "InLine.Creatives.Creative.Linear.TrackingEvents.Tracking",
    "InLine.Extensions.frequency1.text",
    "InLine.Extensions.ClickThrough.text",
};

// Visits every node, as a reader holding the tree might.
std::size_t walk(const tovani::XmlValue& v) {
  std::size_t n = 1;
  if (const std::string* s = v.string()) n += s->size() > 0 ? 1 : 0;
  if (const tovani::XmlMap* m = v.map()) {
    for (const auto& entry : *m) n += walk(entry.second);
  }
  if (const tovani::XmlList* l = v.list()) {
    for (const tovani::XmlValue& e : *l) n += walk(e);
  }
  return n;
}

void read(const tovani::XmlValue& ad) {
  for (const char* path : kAdPaths) {
    try {
      (void)tovani::stringForKeyPath(ad, path);
    } catch (const tovani::PlatformError&) {
    }
    (void)tovani::valueForKeyPath(ad, path);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tovani::XMLController controller;
  const bool ok = controller.parseXML(std::string(reinterpret_cast<const char*>(data), size));
  const tovani::XmlValue& root = controller.dicRoot();
  if (!ok && !root.isNone()) __builtin_trap();
  (void)walk(root);
  for (const tovani::XmlValue& ad : controller.arrayWithKey("Ad")) read(ad);
  try {
    (void)controller.stringWithKey("Error");
  } catch (const tovani::PlatformError&) {
  }
  return 0;
}
