#include "viewer/ad_list_json.hpp"

#include <array>
#include <charconv>
#include <string>

namespace tovani::adlist {

Json parseBody(std::string_view body) {
  if (body.size() > kMaxBodyBytes) return Json::object();
  const auto depthLimit = [](int depth, Json::parse_event_t event, Json&) {
    const bool opens =
        event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start;
    return !opens || depth <= kMaxDepth;
  };
  Json parsed = Json::parse(body.begin(), body.end(), depthLimit, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) return Json::object();
  return parsed;
}

const Json* member(const Json* value, const char* key) {
  if (!value || !value->is_object()) return nullptr;
  const auto it = value->find(key);
  return it == value->end() ? nullptr : &*it;
}

// The platform prints a JSON value's text as follows: strings as they are; integers in
// decimal; other numbers in their shortest round-trip form without a trailing ".0"
// (3.0 reads 3, 0.25 reads 0.25, 1e20 reads 1e+20); booleans as 1 and 0; null as <null>.
// Objects and arrays have no short platform text; their compact JSON is kept, which
// preserves what the server sent.
Text valueText(const Json* value) {
  if (!value) return std::nullopt;
  switch (value->type()) {
    case Json::value_t::string:
      return value->get_ref<const Json::string_t&>();
    case Json::value_t::number_integer:
      return std::to_string(value->get<Json::number_integer_t>());
    case Json::value_t::number_unsigned:
      return std::to_string(value->get<Json::number_unsigned_t>());
    case Json::value_t::number_float: {
      std::array<char, 64> buffer{};
      const double number = value->get<Json::number_float_t>();
      const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number);
      return std::string(buffer.data(), result.ptr);
    }
    case Json::value_t::boolean:
      return value->get<bool>() ? "1" : "0";
    case Json::value_t::null:
      return "<null>";
    case Json::value_t::object:
    case Json::value_t::array:
      return value->dump(-1, ' ', false, Json::error_handler_t::replace);
    case Json::value_t::binary:
    case Json::value_t::discarded:
      break;
  }
  return std::nullopt;
}

}  // namespace tovani::adlist
