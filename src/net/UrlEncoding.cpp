#include "net/UrlEncoding.hpp"

#include <array>

namespace tovani {

namespace {

// For each byte: true when it is written as it stands, false when it becomes %XX.
using ByteSet = std::array<bool, 256>;

constexpr std::string_view kReservedInUrl = ":/?#[]@!$&'()*+,;=";
// Characters escaped on top of the illegal ones when a text becomes one query value. The end
// card's form values use the set without "<" and ">"; both are illegal in a URL anyway, so
// the two give the same text.
constexpr std::string_view kQueryValueExtras = "!*'();:@&=+$,/?%#[]<>";
constexpr std::string_view kEndCardExtras = "!*'();:@&=+$,/?%#[]";

constexpr ByteSet legalInUrl() {
  ByteSet set{};
  for (int c = 'a'; c <= 'z'; ++c) set[static_cast<size_t>(c)] = true;
  for (int c = 'A'; c <= 'Z'; ++c) set[static_cast<size_t>(c)] = true;
  for (int c = '0'; c <= '9'; ++c) set[static_cast<size_t>(c)] = true;
  for (const char c : std::string_view("-._~")) set[static_cast<unsigned char>(c)] = true;
  for (const char c : kReservedInUrl) set[static_cast<unsigned char>(c)] = true;
  return set;
}

constexpr ByteSet with(ByteSet set, std::string_view kept, std::string_view escaped) {
  for (const char c : kept) set[static_cast<unsigned char>(c)] = true;
  for (const char c : escaped) set[static_cast<unsigned char>(c)] = false;
  return set;
}

constexpr ByteSet kLegacy = legalInUrl();
constexpr ByteSet kQueryValue = with(kLegacy, "", kQueryValueExtras);
constexpr ByteSet kEndCardValue = with(kLegacy, "", kEndCardExtras);
constexpr ByteSet kBeaconQuery = with(kLegacy, "%", "@");

std::string escape(std::string_view s, const ByteSet& kept) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(s.size() + s.size() / 2);
  for (const char c : s) {
    const auto byte = static_cast<unsigned char>(c);
    if (kept[byte]) {
      out.push_back(c);
    } else {
      out.push_back('%');
      out.push_back(kHex[byte >> 4]);
      out.push_back(kHex[byte & 0x0F]);
    }
  }
  return out;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

}  // namespace

std::string mp_URLEncodedString(std::string_view s) {
  return escape(s, kQueryValue);
}

std::string endCardFormEncode(std::string_view s) {
  return escape(s, kEndCardValue);
}

std::string legacyEscapeURL(std::string_view s) {
  return escape(s, kLegacy);
}

std::string beaconQueryEscape(std::string_view s) {
  return escape(s, kBeaconQuery);
}

std::string percentDecode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '%' && i + 2 < s.size()) {
      const int high = hexValue(s[i + 1]);
      const int low = hexValue(s[i + 2]);
      if (high >= 0 && low >= 0) {
        out.push_back(static_cast<char>(high * 16 + low));
        i += 2;
        continue;
      }
    }
    out.push_back(s[i]);
  }
  return out;
}

bool isEmpty(std::string_view s) {
  return s.empty();
}

}  // namespace tovani
