// Fuzz target: end-card pages as the server sends them, through the headless web view's link
// discovery. Every link found comes from an href of the page and is resolved against the page.
//
//   build/fuzz/tests/fuzz/fuzz_html -dict=tests/fuzz/html.dict build/fuzz/corpus-html \
//     tests/fuzz/corpus/html
#include <cstdint>
#include <string>
#include <string_view>

#include "HtmlLinks.hpp"

namespace {

constexpr const char* kBase = "http://ads.tovani.example/endcard/ios/type1-1.php";

void require(bool condition) {
  if (!condition) __builtin_trap();
}

size_t hrefs(std::string_view html) {
  size_t n = 0;
  for (size_t i = 0; i + 4 <= html.size(); ++i) {
    const auto lower = [&](size_t k) { return static_cast<char>(html[i + k] | 0x20); };
    n += lower(0) == 'h' && lower(1) == 'r' && lower(2) == 'e' && lower(3) == 'f';
  }
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view html(reinterpret_cast<const char*>(data), size);
  const auto links = tovani::linux::detail::extractLinks(html, kBase);
  require(links.size() <= hrefs(html));
  for (const auto& link : links) require(!link.empty());
  (void)tovani::linux::detail::resolveUrl(kBase, std::string(html));
  return 0;
}
