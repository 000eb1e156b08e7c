#include "util/Text.hpp"

#include <cmath>
#include <cstdio>
#include <limits>

namespace tovani {

namespace {

// One step of a strict UTF-8 decoder. Overlong forms, surrogates and values past U+10FFFF
// are invalid; an invalid sequence is reported as one byte so that scanning resynchronises.
struct CodePoint {
  char32_t value = 0;
  size_t length = 1;
  bool valid = false;
};

bool isContinuation(unsigned char b) {
  return (b & 0xC0) == 0x80;
}

CodePoint decodeAt(std::string_view s, size_t i) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[i + k]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return {lead, 1, true};
  size_t length = 0;
  char32_t value = 0;
  unsigned char low = 0x80;   // allowed range of the second byte; narrower after some leads
  unsigned char high = 0xBF;  // to rule out overlong forms and surrogates
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
    value = lead & 0x1F;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    value = lead & 0x0F;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    value = lead & 0x07;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return {};
  }
  if (i + length > s.size()) return {};
  if (byte(1) < low || byte(1) > high) return {};
  for (size_t k = 1; k < length; ++k) {
    if (!isContinuation(byte(k))) return {};
    value = (value << 6) | (byte(k) & 0x3F);
  }
  return {value, length, true};
}

// Unicode Zs, Zl and Zp, the controls U+0009..U+000D and NEXT LINE.
bool isWhitespaceOrNewline(char32_t c) {
  if (c <= 0x20) return c == 0x20 || (c >= 0x09 && c <= 0x0D);
  if (c < 0x85) return false;
  return c == 0x85 || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 ||
         c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// Index just past the last code point that is not white space, scanning from `from`.
size_t endOfContent(std::string_view s, size_t from) {
  size_t end = from;
  for (size_t i = from; i < s.size();) {
    const CodePoint cp = decodeAt(s, i);
    i += cp.length;
    if (!cp.valid || !isWhitespaceOrNewline(cp.value)) end = i;
  }
  return end;
}

size_t startOfContent(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const CodePoint cp = decodeAt(s, i);
    if (!cp.valid || !isWhitespaceOrNewline(cp.value)) break;
    i += cp.length;
  }
  return i;
}

}  // namespace

std::string formatAt(std::string_view format, std::initializer_list<Text> args) {
  size_t size = format.size();
  for (const Text& arg : args) size += arg ? arg->size() : kNullText.size();
  std::string out;
  out.reserve(size);

  auto next = args.begin();
  size_t done = 0;
  for (size_t pos = format.find('%'); pos != std::string_view::npos; pos = format.find('%', done)) {
    if (pos + 1 >= format.size()) break;  // a lone "%" at the end stays as written
    const char directive = format[pos + 1];
    if (directive != '@' && directive != '%') {
      out.append(format.substr(done, pos + 1 - done));
      done = pos + 1;
      continue;
    }
    out.append(format.substr(done, pos - done));
    if (directive == '%') {
      out.push_back('%');
    } else if (next != args.end()) {
      out.append(*next ? std::string_view(**next) : kNullText);
      ++next;
    } else {
      out.append(kNullText);
    }
    done = pos + 2;
  }
  out.append(format.substr(done));
  return out;
}

std::string trimWhitespaceAndNewlines(std::string_view s) {
  const size_t start = startOfContent(s);
  return std::string(s.substr(start, endOfContent(s, start) - start));
}

std::string trimTrailingWhitespaceAndNewlines(std::string_view s) {
  return std::string(s.substr(0, endOfContent(s, 0)));
}

bool isValidUtf8(std::string_view s) {
  for (size_t i = 0; i < s.size();) {
    const CodePoint cp = decodeAt(s, i);
    if (!cp.valid) return false;
    i += cp.length;
  }
  return true;
}

bool stringBoolValue(const Text& text) {
  if (!text) return false;
  const std::string_view s = *text;
  size_t i = startOfContent(s);
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  while (i < s.size() && s[i] == '0') ++i;
  if (i >= s.size()) return false;
  const char c = s[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

int64_t roundHalfAwayAsFloat(double value) {
  // A double beyond the float range becomes an infinity in the conversion; the cast itself
  // would be undefined in C++, so that case is decided before it.
  if (!std::isfinite(value) || std::fabs(value) > std::numeric_limits<float>::max()) return 0;
  const float single = static_cast<float>(value);
  const float rounded = std::round(single);
  // 2^63 is exactly representable as a float; anything at or past it saturates.
  constexpr float kLimit = 9223372036854775808.0f;
  if (rounded >= kLimit) return std::numeric_limits<int64_t>::max();
  if (rounded < -kLimit) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(rounded);
}

std::string formatNoDecimals(double value) {
  char small[64];
  const int needed = std::snprintf(small, sizeof small, "%.0lf", value);
  if (needed < 0) return {};
  if (static_cast<size_t>(needed) < sizeof small) return std::string(small, needed);
  std::string out(static_cast<size_t>(needed) + 1, '\0');
  std::snprintf(out.data(), out.size(), "%.0lf", value);
  out.resize(static_cast<size_t>(needed));
  return out;
}

std::string collapseBlanksAndTabs(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  bool inRun = false;
  for (const char c : s) {
    const bool blank = c == ' ' || c == '\t';
    if (!blank) {
      out.push_back(c);
    } else if (!inRun) {
      out.push_back(' ');
    }
    inRun = blank;
  }
  return out;
}

std::vector<std::string> splitKeepingEmpty(std::string_view s, char separator) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (size_t pos = s.find(separator); pos != std::string_view::npos;
       pos = s.find(separator, start)) {
    fields.emplace_back(s.substr(start, pos - start));
    start = pos + 1;
  }
  fields.emplace_back(s.substr(start));
  return fields;
}

}  // namespace tovani
