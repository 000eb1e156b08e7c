// Fuzz target: server text as a tracking URL through the beacon sender. What leaves is trimmed,
// absolute, and its one query (when there is exactly one "?") escaped to URL-legal bytes with
// no "@"; the path part is left as the server wrote it. One SDK serves the whole run; each
// input clears what it recorded, so runs stay independent and leak-checked.
//
//   build/fuzz/tests/fuzz/fuzz_tracking build/fuzz/corpus-tracking tests/fuzz/corpus/tracking
#include <cstdint>
#include <string>
#include <string_view>

#include "net/Url.hpp"
#include "support/ViewerFixture.hpp"

namespace {

using namespace tovani::test;

// Never destroyed: the SDK's process-wide state is gone by the time globals are torn down.
ViewerFixture* world = nullptr;

void require(bool condition) {
  if (!condition) __builtin_trap();
}

bool legalQueryByte(char c) {
  const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return alnum || std::string_view("-._~:/#[]!$&'()*+,;=%").find(c) != std::string_view::npos;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  world = new ViewerFixture;
  world->start();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  world->tp.http->clearRecorded();
  world->viewer()->tnSendEventURL(text);
  const auto sent = world->urls(Kind::Beacon);
  require(sent.size() <= 1);
  if (sent.empty()) return 0;
  const std::string& url = sent[0];
  require(tovani::trimWhitespaceAndNewlines(url) == url);
  const auto parsed = tovani::parseUrl(url);
  require(parsed && !parsed->scheme.empty());
  const std::string trimmed = tovani::trimWhitespaceAndNewlines(text);
  const size_t mark = trimmed.find('?');
  if (mark != std::string::npos && trimmed.find('?', mark + 1) == std::string::npos) {
    require(url.compare(0, mark + 1, trimmed, 0, mark + 1) == 0);
    for (size_t i = mark + 1; i < url.size(); ++i) require(legalQueryByte(url[i]));
  } else {
    require(url == trimmed);
  }
  return 0;
}
