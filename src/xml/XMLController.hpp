#pragma once
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "xml/XmlValue.hpp"

namespace tovani {

// Builds the XML tree of one document with expat as a SAX parser. External entities are
// never loaded and entity expansion is bounded (see XMLController.cpp).
class XMLController {
 public:
  // Parses the whole document; true when the parser finished without error. A failed
  // parse leaves dicRoot() none, never a previous result. A none document fails.
  bool parseXML(const std::optional<std::string>& document);
  // The document element's own map (its name dropped), or none.
  const XmlValue& dicRoot() const { return dicRoot_; }
  // Why the last parse failed, and where (line and column as the parser counts them).
  struct ParseError {
    std::string message;
    int64_t line = 0;
    int64_t column = 0;
  };
  const std::optional<ParseError>& lastError() const { return lastError_; }

  std::string stringWithKey(const std::string& key) const;
  XmlList arrayWithKey(const std::string& key) const;
  // A map whose only key is "text" yields that text for any key; otherwise the "text" of
  // the entry under `key`, or "". Throws PlatformError when the entry is a list or an
  // attribute string (or a "text" is not a string): reading those as text is a fault.
  static std::string stringWithKey(const std::string& key, const XmlValue& dic);
  // The entry under `key` as a list: a list as it is, any other value wrapped in a
  // one-element list, none as an empty list.
  static XmlList arrayWithKey(const std::string& key, const XmlValue& dic);

  // Builder state, exposed for the SAX callbacks.
  void didStartElement(const std::string& name,
                       const std::vector<std::pair<std::string, std::string>>& attributes);
  // The same, with the attributes as a null-terminated array of name, value, name, value...
  // (the parser's own form, which saves copying every attribute twice).
  void didStartElementFlat(std::string_view name, const char* const* nameValuePairs);
  void foundCharacters(std::string_view piece);
  void didEndElement();
  void parseErrorOccurred();

 private:
  std::optional<std::string> stringXMLParsing_;
  // Open elements; element 0 is the document container, owned by container_. Every map is
  // owned by its parent's entry, so the stack need not share ownership.
  std::vector<XmlMap*> dictionaryStack_;
  std::shared_ptr<XmlMap> container_;
  // Where the maps of the tree being built are allocated (see XMLController.cpp).
  std::shared_ptr<std::pmr::monotonic_buffer_resource> arena_;
  XmlValue dicRoot_;
  std::optional<ParseError> lastError_;

  std::shared_ptr<XmlMap> newMap();
  void enterElement(std::string name, std::shared_ptr<XmlMap> element);
};

}  // namespace tovani
