#pragma once
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "util/Text.hpp"

// The store's statements put values between quotes without escaping them. A value that
// would leave its quotes, or a number slot filled with something else, would change what
// the statement does; such a statement is never issued, and the caller sees exactly what
// a failed statement gives: no rows, nothing written.
namespace tovani {

struct CheckedStatement {
  std::optional<std::string> text;  // none: refused
  std::string refusal;              // why, when refused
};

// formatAt for a statement template. A "%@" inside a quoted literal refuses a value that
// holds a quote; one outside quotes, and every slot listed in `numericSlots` (0-based),
// refuses anything but a plain decimal number. Otherwise the text is formatAt's, byte for byte.
CheckedStatement formatStatement(std::string_view statementTemplate,
                                 std::initializer_list<Text> args,
                                 std::initializer_list<size_t> numericSlots = {});

// True for an optional "-" followed by digits, with at most one "." between digits.
bool isPlainNumber(std::string_view value);

// The one log line of a refused statement.
inline constexpr const char* kStatementRefusedLog =
    "tovani: store statement not issued: a value would change its shape";

}  // namespace tovani
