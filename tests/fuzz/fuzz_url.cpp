// Fuzz target for the URL parser, the percent encoders and the text trimming: none of them may
// crash on server-sent text, and the encoders must round-trip. Build and run:
//
//   cmake --preset fuzz && cmake --build build/fuzz --target fuzz_url
//   build/fuzz/tests/fuzz/fuzz_url -max_total_time=60
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "net/Url.hpp"
#include "net/UrlEncoding.hpp"
#include "util/Text.hpp"

namespace {

void require(bool condition) {
  if (!condition) __builtin_trap();
}

bool onlyUnreservedOrEscapes(std::string_view s) {
  for (const char c : s) {
    const bool unreserved = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                            (c >= '0' && c <= '9') || c == '-' || c == '.' || c == '_' ||
                            c == '~' || c == '%';
    if (!unreserved) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  if (const auto url = tovani::parseUrl(text)) {
    require(url->path.size() <= text.size() + 1);
    require(tovani::lastPathComponentOfUrl(text).has_value());
  }

  const std::string value = tovani::mp_URLEncodedString(text);
  require(onlyUnreservedOrEscapes(value));
  require(tovani::percentDecode(value) == text);
  require(tovani::percentDecode(tovani::endCardFormEncode(text)) == text);
  require(tovani::percentDecode(tovani::legacyEscapeURL(text)) == text);
  // Escaped text goes back to the parser, as a request does when it is sent.
  (void)tovani::parseUrl(tovani::legacyEscapeURL(text));
  (void)tovani::parseUrl(tovani::beaconQueryEscape(text));

  const std::string trimmed = tovani::trimWhitespaceAndNewlines(text);
  require(text.find(trimmed) != std::string_view::npos);
  require(tovani::trimWhitespaceAndNewlines(trimmed) == trimmed);
  const std::string tail = tovani::trimTrailingWhitespaceAndNewlines(text);
  require(text.substr(0, tail.size()) == tail);
  (void)tovani::stringBoolValue(std::string(text));
  (void)tovani::formatAt(text, {std::string(text), std::nullopt});
  return 0;
}
