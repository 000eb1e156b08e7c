#pragma once
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// How the platform the SDK was first written for turns values into text. Each rule lives
// here once, so that call sites never re-derive it.
namespace tovani {

// "String or none": absent and empty are different values and format differently.
using Text = std::optional<std::string>;

// Fills each "%@" with the next argument as it stands ("(null)" when absent) and turns
// "%%" into "%". Missing arguments format as "(null)"; surplus ones are ignored.
std::string formatAt(std::string_view format, std::initializer_list<Text> args);

// Text of an absent value when formatted.
inline constexpr std::string_view kNullText = "(null)";

// True for the white-space-and-newline set: Unicode Z* and the controls U+0009..U+000D,
// U+0085. Works on UTF-8.
std::string trimWhitespaceAndNewlines(std::string_view s);
// Only the end side of the same set.
std::string trimTrailingWhitespaceAndNewlines(std::string_view s);

// True when `s` is well-formed UTF-8 (no overlong forms, surrogates or values past U+10FFFF).
bool isValidUtf8(std::string_view s);

// A string's boolean value: skip leading white space, an optional sign and leading
// zeros; true when the next character is Y, y, T, t or a digit 1-9. None reads false.
bool stringBoolValue(const Text& s);

// Converts to single precision and rounds to nearest, halves away from zero; NaN and
// infinities give 0.
int64_t roundHalfAwayAsFloat(double value);

// printf-style "%.0lf" of a double.
std::string formatNoDecimals(double value);

// Replaces every run of blanks and tabs by one blank.
std::string collapseBlanksAndTabs(std::string_view s);

// Splits on every occurrence of `separator`, keeping empty fields ("" gives one field).
std::vector<std::string> splitKeepingEmpty(std::string_view s, char separator);

}  // namespace tovani
