// Fuzz target: any URL an end-card page navigates to. The decision is one of: load it inside
// the card (only pages of the production host), run a bridge command, or leave the ad (one
// opened URL at most, one result to the host). Nothing off the production host loads inside.
//
//   build/fuzz/tests/fuzz/fuzz_endcard -dict=tests/fuzz/url.dict build/fuzz/corpus-endcard \
//     tests/fuzz/corpus/endcard
#include <cstdint>
#include <string>

#include "net/Url.hpp"
#include "support/ViewerFixture.hpp"

namespace {

using namespace tovani::test;

// Never destroyed: the SDK's process-wide state is gone by the time globals are torn down.
ViewerFixture* world = nullptr;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  world = new ViewerFixture;
  world->start();
  world->tp.app->openableSchemes = {"http", "https", "tel", "market"};
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ViewerFixture& w = *world;
  w.tp.app->opened.clear();
  w.host->results.clear();
  w.tp.http->clearRecorded();
  const std::string url(reinterpret_cast<const char*>(data), size);

  const bool inCard = w.viewer()->shouldStartLoadWithRequest({url, "GET", "", true});
  w.tp.runUntilIdle();
  const auto parsed = tovani::parseUrl(url);
  if (inCard) {
    // Text that does not parse (a web view escapes such bytes) may stay only when the host
    // name is followed by the start of a path, query or fragment.
    const std::string root = tovani::TOVANI_PRODUCTION_ROOT_URL;
    require(parsed ? parsed->scheme == "http" && parsed->host == tovani::TOVANI_PRODUCTION_AD_HOST
                   : url.size() > root.size() &&
                         std::string("/?#").find(url[root.size()]) != std::string::npos);
    require(w.tp.app->opened.empty() && w.host->results.empty());
    return 0;
  }
  require(w.tp.app->opened.size() <= 1);
  require(w.host->results.size() <= 1);
  if (parsed && parsed->scheme == "tovaniksdkcall") require(w.tp.app->opened.empty());
  return 0;
}
