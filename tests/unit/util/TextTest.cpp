#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <tuple>

#include "util/Text.hpp"

namespace tovani {
namespace {

TEST(FormatAt, FillsPlaceholdersInOrderAndOnlyThem) {
  EXPECT_EQ(formatAt("a='%@' b='%@' %@", {"it's", std::nullopt}), "a='it's' b='(null)' (null)");
  EXPECT_EQ(formatAt("%@%@", {"", "y", "surplus"}), "y");
  // "%%" is consumed before "%@" can form; other sequences stay as written.
  EXPECT_EQ(formatAt("100%% %%@ %%%@ %d %", {"x"}), "100% %@ %x %d %");
  EXPECT_EQ(formatAt("[%@][%@]", {"%@%%", "b"}), "[%@%%][b]") << "values are never re-read";
}

TEST(Trim, RemovesUnicodeWhiteSpaceButNeverOtherOrInvalidBytes) {
  // NBSP, NEL, ideographic, line, paragraph and thin spaces go; zero-width space and BOM are
  // format characters and stay. A lone continuation byte, a truncated sequence, an overlong
  // blank and a surrogate are content.
  // clang-format off
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {" \t\r\n\v\fhttp://h/a b\n", "http://h/a b", " \t\r\n\v\fhttp://h/a b"},
      {"\u00A0\u0085a\u3000\u2028\u2029\u2009", "a", "\u00A0\u0085a"},
      {"\u200Ba\uFEFF", "\u200Ba\uFEFF", "\u200Ba\uFEFF"},
      {"caf\u00E9 \u00A0", "caf\u00E9", "caf\u00E9"}, {" \n\t\u00A0\u3000", "", ""}, {"", "", ""},
      {" \x80\xED\xA0\x80 ", "\x80\xED\xA0\x80", " \x80\xED\xA0\x80"},
      {"\xE2\x80", "\xE2\x80", "\xE2\x80"}, {"\xC0\xA0", "\xC0\xA0", "\xC0\xA0"}};
  // clang-format on
  for (const auto& [in, both, trailing] : cases) {
    EXPECT_EQ(trimWhitespaceAndNewlines(in), both) << in;
    EXPECT_EQ(trimTrailingWhitespaceAndNewlines(in), trailing) << in;
  }
  EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));
  EXPECT_TRUE(isValidUtf8("\U0001F600 caf\u00E9"));
}

TEST(StringBoolValue, ReadsLikeThePlatform) {
  for (const char* yes : {"TRUE", "tomato", "Yes", "y", "9", "0001", "+1", "-5", "\n 1", "12abc"})
    EXPECT_TRUE(stringBoolValue(std::string(yes))) << yes;
  for (const char* no : {"", "false", "no", "000", "-0", "+", "a1", " ", "on", "+-1", "0x1", ".5"})
    EXPECT_FALSE(stringBoolValue(std::string(no))) << no;
  EXPECT_FALSE(stringBoolValue(std::nullopt));
}

// 0.49999999999 and 2.4999999999 are exactly .5 in single precision, so they round up;
// 16777217 has no float. Past the float range a value is an infinity, which gives 0; within
// it but past int64, the result saturates.
TEST(RoundHalfAwayAsFloat, RoundsTheSinglePrecisionValueHalvesAwayFromZero) {
  // clang-format off
  const std::pair<double, int64_t> cases[] = {
      {0.5, 1}, {2.5, 3}, {-2.5, -3}, {2.4, 2}, {-0.4, 0}, {59.9, 60}, {0.49999999999, 1},
      {2.4999999999, 3}, {16777217.0, 16777216}, {std::nan(""), 0}, {HUGE_VAL, 0}, {-HUGE_VAL, 0},
      {1e300, 0}, {1e30, INT64_MAX}, {-1e30, INT64_MIN}};
  // clang-format on
  for (const auto& [value, rounded] : cases)
    EXPECT_EQ(roundHalfAwayAsFloat(value), rounded) << value;
}

TEST(TextHelpers, PrintLikePrintfCollapseBlanksAndSplitKeepingEmptyFields) {
  EXPECT_EQ(formatNoDecimals(2.5), "2") << "printf rounds halves to even";
  EXPECT_EQ(formatNoDecimals(1e300).size(), 301u) << "long results are not cut";
  EXPECT_EQ(collapseBlanksAndTabs("  a \t  b\t\tc\nd"), " a b c\nd");
  EXPECT_EQ(splitKeepingEmpty("^a^^", '^'), (std::vector<std::string>{"", "a", "", ""}));
}

}  // namespace
}  // namespace tovani
