#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "util/Text.hpp"

namespace tovani {
namespace {

TEST(FormatAt, FillsPlaceholdersInOrderAndWritesAbsentValuesAsNull) {
  EXPECT_EQ(formatAt("select * from t where a='%@' and b='%@'", {"x", std::nullopt}),
            "select * from t where a='x' and b='(null)'");
  EXPECT_EQ(formatAt("%@%@", {"", "y"}), "y");
  EXPECT_EQ(formatAt("$%@", {"it's"}), "$it's") << "values go in unescaped";
}

TEST(FormatAt, MissingArgumentsReadNullAndSurplusOnesAreDropped) {
  EXPECT_EQ(formatAt("%@-%@-%@", {"a"}), "a-(null)-(null)");
  EXPECT_EQ(formatAt("%@", {"a", "b", "c"}), "a");
  EXPECT_EQ(formatAt("no placeholders", {"a"}), "no placeholders");
}

TEST(FormatAt, DoublePercentIsOnePercentAndOtherSequencesStayAsWritten) {
  EXPECT_EQ(formatAt("100%%", {}), "100%");
  EXPECT_EQ(formatAt("%%@", {"x"}), "%@") << "%% is consumed before %@ can form";
  EXPECT_EQ(formatAt("%%%@", {"x"}), "%x");
  EXPECT_EQ(formatAt("%d %s %", {"x"}), "%d %s %");
  EXPECT_EQ(formatAt("%", {"x"}), "%");
  // A value containing format sequences is inserted literally, never re-read.
  EXPECT_EQ(formatAt("[%@][%@]", {"%@%%", "b"}), "[%@%%][b]");
}

TEST(FormatAt, BuildsTheDateRangeCapStatement) {
  const std::string_view rangeCap =
      "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no ='%@' "
      "and (strftime('%%Y%%m%%d',reg_date) between '%@' and '%@')   group by ads_no) as t1 "
      "where  freqcnt >= %@ and (strftime('%%Y%%m%%d',date()) between '%@' and '%@')  ";
  EXPECT_EQ(formatAt(rangeCap, {"77", "20240101", "20241231", "3", "20240101", "20241231"}),
            "select * from ( select count(*) as freqcnt, ads_no from tn_ads_freq where ads_no "
            "='77' and (strftime('%Y%m%d',reg_date) between '20240101' and '20241231')   group "
            "by ads_no) as t1 where  freqcnt >= 3 and (strftime('%Y%m%d',date()) between "
            "'20240101' and '20241231')  ");
}

TEST(Trim, RemovesAsciiWhiteSpaceAndNewlinesOnBothSidesOnly) {
  EXPECT_EQ(trimWhitespaceAndNewlines(" \t\r\n\v\fhttp://h/a b\n"), "http://h/a b");
  EXPECT_EQ(trimTrailingWhitespaceAndNewlines(" a b \t\n"), " a b");
  EXPECT_EQ(trimWhitespaceAndNewlines("x"), "x");
  EXPECT_EQ(trimWhitespaceAndNewlines(""), "");
}

TEST(Trim, RemovesUnicodeSeparatorsButNotOtherCharacters) {
  const std::string nbsp = "\xC2\xA0", nel = "\xC2\x85", ideographic = "\xE3\x80\x80";
  const std::string lineSep = "\xE2\x80\xA8", paraSep = "\xE2\x80\xA9", thin = "\xE2\x80\x89";
  EXPECT_EQ(trimWhitespaceAndNewlines(nbsp + nel + "a" + ideographic + lineSep + paraSep + thin),
            "a");
  // Zero-width space and BOM are format characters, not white space.
  const std::string zwsp = "\xE2\x80\x8B", bom = "\xEF\xBB\xBF";
  EXPECT_EQ(trimWhitespaceAndNewlines(zwsp + "a" + bom), zwsp + "a" + bom);
  // A non-white multi-byte character at the edge is kept whole.
  EXPECT_EQ(trimTrailingWhitespaceAndNewlines("caf\xC3\xA9 " + nbsp), "caf\xC3\xA9");
}

TEST(Trim, AllWhiteTextBecomesEmpty) {
  EXPECT_EQ(trimWhitespaceAndNewlines(" \n\t\xC2\xA0\xE3\x80\x80"), "");
  EXPECT_EQ(trimTrailingWhitespaceAndNewlines("\r\n \xE2\x80\xA8"), "");
}

TEST(Trim, InvalidUtf8IsContentNotWhiteSpace) {
  // A lone continuation byte, a truncated sequence and an overlong blank (C0 A0) all stay.
  EXPECT_EQ(trimWhitespaceAndNewlines(" \x80 "), "\x80");
  EXPECT_EQ(trimWhitespaceAndNewlines("a \xE2\x80"), "a \xE2\x80");
  EXPECT_EQ(trimWhitespaceAndNewlines("\xC0\xA0x\xC0\xA0"), "\xC0\xA0x\xC0\xA0");
  // A surrogate encoded in UTF-8 is not text either.
  EXPECT_EQ(trimTrailingWhitespaceAndNewlines("\xED\xA0\x80 "), "\xED\xA0\x80");
  EXPECT_FALSE(isValidUtf8("\xED\xA0\x80"));
  EXPECT_FALSE(isValidUtf8("\xF4\x90\x80\x80"));
  EXPECT_TRUE(isValidUtf8("\xF0\x9F\x98\x80 caf\xC3\xA9"));
}

TEST(StringBoolValue, ReadsLikeThePlatform) {
  for (const char* yes : {"true", "TRUE", "t", "Yes", "y", "1", "9", "0001", "+1", "-5", "  1",
                          "\n y", "Tomato", "12abc"}) {
    EXPECT_TRUE(stringBoolValue(std::string(yes))) << yes;
  }
  for (const char* no :
       {"", "false", "no", "0", "000", "-0", "+", "a1", " ", "on", "+-1", "0x1", ".5"}) {
    EXPECT_FALSE(stringBoolValue(std::string(no))) << no;
  }
  EXPECT_FALSE(stringBoolValue(std::nullopt));
}

TEST(RoundHalfAwayAsFloat, RoundsHalvesAwayFromZero) {
  EXPECT_EQ(roundHalfAwayAsFloat(0.5), 1);
  EXPECT_EQ(roundHalfAwayAsFloat(1.5), 2);
  EXPECT_EQ(roundHalfAwayAsFloat(2.5), 3);
  EXPECT_EQ(roundHalfAwayAsFloat(-2.5), -3);
  EXPECT_EQ(roundHalfAwayAsFloat(2.4), 2);
  EXPECT_EQ(roundHalfAwayAsFloat(-0.4), 0);
  EXPECT_EQ(roundHalfAwayAsFloat(59.9), 60);
}

TEST(RoundHalfAwayAsFloat, RoundsTheSinglePrecisionValueNotTheDouble) {
  // Both become exactly .5 in single precision and then round up; as doubles they would not.
  EXPECT_EQ(roundHalfAwayAsFloat(0.49999999999), 1);
  EXPECT_EQ(roundHalfAwayAsFloat(2.4999999999), 3);
  // 16777217 has no float; it becomes 16777216.
  EXPECT_EQ(roundHalfAwayAsFloat(16777217.0), 16777216);
}

TEST(RoundHalfAwayAsFloat, NonFiniteGivesZeroAndHugeSaturates) {
  EXPECT_EQ(roundHalfAwayAsFloat(std::nan("")), 0);
  EXPECT_EQ(roundHalfAwayAsFloat(std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(roundHalfAwayAsFloat(-std::numeric_limits<double>::infinity()), 0);
  EXPECT_EQ(roundHalfAwayAsFloat(1e300), 0) << "beyond float range it is an infinity";
  EXPECT_EQ(roundHalfAwayAsFloat(1e30), std::numeric_limits<int64_t>::max());
  EXPECT_EQ(roundHalfAwayAsFloat(-1e30), std::numeric_limits<int64_t>::min());
}

TEST(FormatNoDecimals, PrintsLikePrintf) {
  EXPECT_EQ(formatNoDecimals(30.0), "30");
  EXPECT_EQ(formatNoDecimals(2.5), "2") << "printf rounds halves to even";
  EXPECT_EQ(formatNoDecimals(3.5), "4");
  EXPECT_EQ(formatNoDecimals(-0.4), "-0");
  EXPECT_EQ(formatNoDecimals(1e20), "100000000000000000000");
  EXPECT_EQ(formatNoDecimals(1e300).size(), 301u) << "long results are not cut";
}

TEST(CollapseBlanksAndTabs, JoinsRunsIntoOneBlank) {
  EXPECT_EQ(collapseBlanksAndTabs("a \t  b\t\tc"), "a b c");
  EXPECT_EQ(collapseBlanksAndTabs("  a  "), " a ");
  EXPECT_EQ(collapseBlanksAndTabs("a\nb"), "a\nb") << "newlines are not blanks";
  EXPECT_EQ(collapseBlanksAndTabs(""), "");
}

TEST(SplitKeepingEmpty, KeepsEveryField) {
  EXPECT_EQ(splitKeepingEmpty("img.png^123", '^'), (std::vector<std::string>{"img.png", "123"}));
  EXPECT_EQ(splitKeepingEmpty("^a^^", '^'), (std::vector<std::string>{"", "a", "", ""}));
  EXPECT_EQ(splitKeepingEmpty("", '^'), (std::vector<std::string>{""}));
  EXPECT_EQ(splitKeepingEmpty("a?b?c", '?').size(), 3u);
}

}  // namespace
}  // namespace tovani
