#include "xml/XmlValue.hpp"

#include "util/PlatformError.hpp"

namespace tovani {

XmlMap* XmlValue::map() const {
  const auto* m = std::get_if<std::shared_ptr<XmlMap>>(&v_);
  return m != nullptr ? m->get() : nullptr;
}

XmlList* XmlValue::list() const {
  const auto* l = std::get_if<std::shared_ptr<XmlList>>(&v_);
  return l != nullptr ? l->get() : nullptr;
}

XmlValue XmlValue::operator[](const std::string& key) const {
  const XmlMap* m = map();
  if (m == nullptr) return {};
  auto it = m->find(key);
  return it != m->end() ? it->second : XmlValue{};
}

namespace {

// Resolves the segments of `path` from `pos` on. A list does not consume a segment: the
// remaining path, current segment included, is applied to each element, as the platform's
// collection look-up does, so lists met further down nest.
XmlValue lookUp(const XmlValue& value, std::string_view path, std::size_t pos) {
  if (pos > path.size()) return value;
  if (const XmlList* l = value.list()) {
    auto out = std::make_shared<XmlList>();
    out->reserve(l->size());
    for (const XmlValue& element : *l) out->push_back(lookUp(element, path, pos));
    return XmlValue(std::move(out));
  }
  const XmlMap* m = value.map();
  // A string (or nothing) met before the path ends has no keys.
  if (m == nullptr) return {};
  std::size_t dot = path.find('.', pos);
  if (dot == std::string_view::npos) dot = path.size();
  auto it = m->find(path.substr(pos, dot - pos));
  if (it == m->end()) return {};
  return lookUp(it->second, path, dot + 1);
}

}  // namespace

XmlValue valueForKeyPath(const XmlValue& root, std::string_view keyPath) {
  return lookUp(root, keyPath, 0);
}

std::optional<std::string> stringForKeyPath(const XmlValue& root, std::string_view keyPath) {
  XmlValue v = valueForKeyPath(root, keyPath);
  if (v.isNone()) return std::nullopt;
  if (const std::string* s = v.string()) return *s;
  throw PlatformError("value at key path \"" + std::string(keyPath) + "\" is not a string");
}

}  // namespace tovani
