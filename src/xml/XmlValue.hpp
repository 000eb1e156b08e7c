#pragma once
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tovani {

class XmlValue;
// Key order inside an element's map carries no meaning, so keys are ordered by length
// first: most comparisons then end without looking at the characters. Transparent, so a
// look-up needs no std::string.
struct XmlKeyLess {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept {
    return a.size() != b.size() ? a.size() < b.size() : a < b;
  }
};

// Maps are polymorphic-allocator maps so that the parser can carve a whole tree from one
// arena; a map made anywhere else uses the ordinary heap.
using XmlMap = std::pmr::map<std::string, XmlValue, XmlKeyLess>;
using XmlList = std::vector<XmlValue>;

// A node of the XML tree: none, a string (text or attribute value), a map (an element) or
// a list (repeated elements). Maps and lists are shared, as the builder fills an element's
// map after it has been entered into its parent.
class XmlValue {
 public:
  XmlValue() = default;
  XmlValue(std::string s) : v_(std::move(s)) {}               // NOLINT(google-explicit-constructor)
  XmlValue(std::shared_ptr<XmlMap> m) : v_(std::move(m)) {}   // NOLINT
  XmlValue(std::shared_ptr<XmlList> l) : v_(std::move(l)) {}  // NOLINT

  bool isNone() const { return std::holds_alternative<std::monostate>(v_); }
  bool isString() const { return std::holds_alternative<std::string>(v_); }
  bool isMap() const { return std::holds_alternative<std::shared_ptr<XmlMap>>(v_); }
  bool isList() const { return std::holds_alternative<std::shared_ptr<XmlList>>(v_); }

  // Null when the value is of another kind.
  const std::string* string() const { return std::get_if<std::string>(&v_); }
  XmlMap* map() const;
  XmlList* list() const;

  // Value under `key` of a map; none for another kind or a missing key.
  XmlValue operator[](const std::string& key) const;

 private:
  std::variant<std::monostate, std::string, std::shared_ptr<XmlMap>, std::shared_ptr<XmlList>> v_;
};

// The platform's key-path look-up: each dot-separated segment is a map look-up; a missing
// segment gives none; a segment that meets a list applies the rest of the path to every
// element and yields a list (none elements where an element lacks the key).
XmlValue valueForKeyPath(const XmlValue& root, std::string_view keyPath);

// The value at `keyPath` read as a string: none when absent; throws PlatformError when it
// is a list or a map (a string read through a list, for instance).
std::optional<std::string> stringForKeyPath(const XmlValue& root, std::string_view keyPath);

}  // namespace tovani
