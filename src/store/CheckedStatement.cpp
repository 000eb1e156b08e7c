#include "store/CheckedStatement.hpp"

#include <algorithm>
#include <cctype>

namespace tovani {

bool isPlainNumber(std::string_view value) {
  if (!value.empty() && value.front() == '-') value.remove_prefix(1);
  if (value.empty() || value.front() == '.' || value.back() == '.') return false;
  bool seenPoint = false;
  for (const char c : value) {
    if (c == '.' && !seenPoint) {
      seenPoint = true;
    } else if (std::isdigit(static_cast<unsigned char>(c)) == 0) {
      return false;
    }
  }
  return true;
}

CheckedStatement formatStatement(std::string_view statementTemplate,
                                 std::initializer_list<Text> args,
                                 std::initializer_list<size_t> numericSlots) {
  // Walks the template as SQL reads it: a quote opens or closes a literal ("''" closes and
  // reopens, which comes to the same), and each "%@" takes the next value.
  bool inLiteral = false;
  size_t slot = 0;
  auto next = args.begin();
  for (size_t i = 0; i < statementTemplate.size(); ++i) {
    const char c = statementTemplate[i];
    if (c == '\'') {
      inLiteral = !inLiteral;
      continue;
    }
    if (c != '%' || i + 1 >= statementTemplate.size()) continue;
    if (statementTemplate[i + 1] == '%') {
      ++i;
      continue;
    }
    if (statementTemplate[i + 1] != '@') continue;
    ++i;
    const Text value = next != args.end() ? *next++ : std::nullopt;
    const std::string_view shown = value ? std::string_view(*value) : kNullText;
    const bool numeric = !inLiteral || std::find(numericSlots.begin(), numericSlots.end(), slot) !=
                                           numericSlots.end();
    if (numeric && !isPlainNumber(shown)) {
      return {std::nullopt, "value " + std::to_string(slot) + " is not a plain number"};
    }
    if (shown.find('\'') != std::string_view::npos) {
      return {std::nullopt, "value " + std::to_string(slot) + " holds a quote"};
    }
    ++slot;
  }
  return {formatAt(statementTemplate, args), {}};
}

}  // namespace tovani
