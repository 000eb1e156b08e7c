// Fuzz target: arbitrary bytes as the VAST answer of a showing on the test platform, through
// the whole path: answer, tree, choice of a cached ad, its frequency rule against the stored
// impressions, playback start and the tracking walk to the end (or the end card's close).
// Whatever the answer, the host hears exactly one result, and every beacon is an absolute URL.
//
//   build/fuzz/tests/fuzz/fuzz_vast -dict=tests/fuzz/xml.dict -max_len=16384 \
//     build/fuzz/corpus-vast tests/fuzz/corpus/vast
#include <cstdint>
#include <cstdlib>
#include <string>

#include "net/Url.hpp"
#include "support/ViewerFixture.hpp"

namespace {

using namespace tovani::test;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A fresh SDK per input keeps runs independent and lets libFuzzer check for leaks.
  ViewerFixture w;
  w.start();
  // Two cached ads the answer can name (short, so the walk ends soon), one of them with
  // impressions for the frequency rules to count.
  w.addCached("7", "ad30.mp4");
  w.addCached("8", "b.mp4");
  w.tp.players->durationByFileName["ad30.mp4"] = 3;
  w.tp.players->durationByFileName["b.mp4"] = 2;
  w.addShowings("7", "datetime('now')", 2);
  w.tp.http->on([](const std::string& url) { return url.find("?xml=vast&") != std::string::npos; },
                answer(std::string(reinterpret_cast<const char*>(data), size)));
  w.tp.http->clearRecorded();

  tovani::TovaniSDK::tovaniShow(w.hostRoot);
  w.tp.advance(20);
  // A showing that ended on its end card waits for the page's close link.
  if (w.host->results.empty()) {
    (void)w.viewer()->shouldStartLoadWithRequest({"tovaniksdkcall://close"});
    w.tp.advance(5);
  }
  require(w.host->results.size() == 1);
  for (const std::string& url : w.urls(Kind::Beacon)) {
    const auto parsed = tovani::parseUrl(url);
    require(parsed && !parsed->scheme.empty());
  }
  return 0;
}
