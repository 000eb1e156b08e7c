// XMLController: the ad server's VAST answer turned into a tree of maps, lists and strings.
//
// The document comes from the network and is treated as hostile. The expat settings that
// keep a parse from reading files, reaching the network or blowing up memory:
//
//  - No external entity is ever loaded. Expat performs no I/O of its own; it would only
//    hand an external reference to an XML_SetExternalEntityRefHandler, and none is
//    installed. XML_SetParamEntityParsing(XML_PARAM_ENTITY_PARSING_NEVER) keeps it from
//    even asking for an external DTD subset.
//  - A document that declares any entity (general or parameter, internal or external) is
//    refused: the XML_SetEntityDeclHandler stops the parser at the first declaration. A
//    VAST answer has no use for a DTD, and refusing declarations takes away both the
//    external-entity and the entity-expansion attacks at the root. The five predefined
//    entities and character references still work.
//  - As a second line, expat's amplification guard is set explicitly and tighter than its
//    defaults (XML_SetBillionLaughsAttackProtectionMaximumAmplification and
//    ...ActivationThreshold), in case a later change lets declarations through.
//  - A document larger than kMaxDocumentBytes is refused before parsing. Answers are tens
//    of kilobytes; 4 MB leaves two orders of magnitude of headroom while bounding the
//    memory a tree can take (a few times the document size).
//  - Elements nested deeper than kMaxDepth stop the parser. The tree is freed and walked
//    recursively, so unbounded nesting would turn into unbounded stack use; VAST nests
//    about ten levels.
//  - More than kMaxNodes elements and attributes stop the parser. Each costs a map entry of
//    a hundred bytes or more, so four megabytes of "<a/>" would otherwise grow into a tree
//    of a few hundred megabytes; a 100 KB answer has about 3000.
//
// No namespace processing is asked for: element and attribute names are kept as written,
// prefixes included.
//
// CDATA: with no CDATA section handlers installed expat delivers the content of a CDATA
// section as ordinary character data, and this builder keeps it that way. Servers commonly
// wrap URLs in CDATA, and the readers of the tree need those URLs in "text"; dropping them
// would make such an ad unplayable.
#include "xml/XMLController.hpp"

// The amplification guard is declared only for builds of expat with DTD support, which
// Debian's is; without it the program would not link rather than run unguarded.
#ifndef XML_DTD
#define XML_DTD
#endif
#include <expat.h>

#include <algorithm>
#include <cstddef>

#include "util/PlatformError.hpp"

namespace tovani {

namespace {

constexpr std::size_t kMaxDocumentBytes = 4U * 1024U * 1024U;
constexpr int kMaxDepth = 256;
constexpr int kMaxNodes = 100000;
constexpr std::size_t kArenaBytesPerDocumentByte = 3;
constexpr std::size_t kMaxInitialArenaBytes = 1024U * 1024U;
constexpr float kMaxAmplification = 10.0F;
constexpr unsigned long long kAmplificationThreshold = 1024U * 1024U;  // NOLINT(runtime/int)

// Parser-side state of one parse; expat's user data.
struct ParseContext {
  XMLController* controller;
  XML_Parser parser;
  int depth = 0;
  int nodes = 0;
  bool stopped = false;
  const char* stopReason = "";

  void stop(const char* reason) {
    if (stopped) return;
    stopped = true;
    stopReason = reason;
    XML_StopParser(parser, XML_FALSE);
  }
};

ParseContext& contextOf(void* userData) {
  return *static_cast<ParseContext*>(userData);
}

void XMLCALL onStart(void* userData, const XML_Char* name, const XML_Char** attributes) {
  ParseContext& ctx = contextOf(userData);
  // Expat may still deliver an event or two after a stop; they must not touch the tree.
  if (ctx.stopped) return;
  ++ctx.nodes;
  for (const XML_Char** a = attributes; *a != nullptr; a += 2) ++ctx.nodes;
  if (++ctx.depth > kMaxDepth || ctx.nodes > kMaxNodes) {
    ctx.stop(ctx.depth > kMaxDepth ? "elements nested too deeply" : "too many elements");
    return;
  }
  ctx.controller->didStartElementFlat(name, attributes);
}

void XMLCALL onEnd(void* userData, const XML_Char* /*name*/) {
  ParseContext& ctx = contextOf(userData);
  if (ctx.stopped) return;
  --ctx.depth;
  ctx.controller->didEndElement();
}

void XMLCALL onCharacters(void* userData, const XML_Char* s, int len) {
  ParseContext& ctx = contextOf(userData);
  if (ctx.stopped) return;
  ctx.controller->foundCharacters(std::string_view(s, static_cast<std::size_t>(len)));
}

void XMLCALL onEntityDecl(void* userData, const XML_Char* /*entityName*/, int /*isParameterEntity*/,
                          const XML_Char* /*value*/, int /*valueLength*/, const XML_Char* /*base*/,
                          const XML_Char* /*systemId*/, const XML_Char* /*publicId*/,
                          const XML_Char* /*notationName*/) {
  contextOf(userData).stop("entity declarations are refused");
}

// Owns the expat parser for the length of one parse.
class ExpatParser {
 public:
  ExpatParser() : p_(XML_ParserCreate("UTF-8")) {}
  ~ExpatParser() {
    if (p_ != nullptr) XML_ParserFree(p_);
  }
  ExpatParser(const ExpatParser&) = delete;
  ExpatParser& operator=(const ExpatParser&) = delete;
  XML_Parser get() const { return p_; }

 private:
  XML_Parser p_;
};

}  // namespace

bool XMLController::parseXML(const std::optional<std::string>& document) {
  stringXMLParsing_.reset();
  dicRoot_ = XmlValue();
  dictionaryStack_.clear();
  container_.reset();
  arena_.reset();
  lastError_.reset();
  if (!document) {
    lastError_ = ParseError{"no document", 0, 0};
    return false;
  }
  if (document->size() > kMaxDocumentBytes) {
    lastError_ = ParseError{"document too large", 0, 0};
    return false;
  }

  // A VAST tree takes a few times the size of its document; starting the arena near that
  // size saves most of its growth steps. Text-heavy documents need far less, hence the cap.
  arena_ = std::make_shared<std::pmr::monotonic_buffer_resource>(std::clamp<std::size_t>(
      document->size() * kArenaBytesPerDocumentByte, 4096, kMaxInitialArenaBytes));
  container_ = newMap();
  dictionaryStack_.push_back(container_.get());

  // The text arrives decoded; its bytes are UTF-8 whatever the declaration claims.
  ExpatParser parser;
  if (parser.get() == nullptr) return false;
  XML_Parser p = parser.get();
  ParseContext ctx{this, p};
  XML_SetUserData(p, &ctx);
  XML_SetElementHandler(p, onStart, onEnd);
  XML_SetCharacterDataHandler(p, onCharacters);
  XML_SetEntityDeclHandler(p, onEntityDecl);
  XML_SetParamEntityParsing(p, XML_PARAM_ENTITY_PARSING_NEVER);
  XML_SetBillionLaughsAttackProtectionMaximumAmplification(p, kMaxAmplification);
  XML_SetBillionLaughsAttackProtectionActivationThreshold(p, kAmplificationThreshold);

  const bool ok = XML_Parse(p, document->data(), static_cast<int>(document->size()), XML_TRUE) ==
                      XML_STATUS_OK &&
                  !ctx.stopped;
  // The tree keeps its arena alive through its maps; the builder lets go of it either way.
  arena_.reset();
  if (!ok) {
    lastError_ = ParseError{ctx.stopped ? ctx.stopReason : XML_ErrorString(XML_GetErrorCode(p)),
                            static_cast<int64_t>(XML_GetCurrentLineNumber(p)),
                            static_cast<int64_t>(XML_GetCurrentColumnNumber(p))};
    parseErrorOccurred();
    dictionaryStack_.clear();
    container_.reset();
    return false;
  }
  dicRoot_ = container_->size() == 1 ? container_->begin()->second : XmlValue(container_);
  return true;
}

namespace {

// Hands out memory from one tree's arena and keeps that arena alive for as long as any map
// allocated with it (each map's control block holds a copy). Freeing is a no-op: the arena
// returns everything at once when the last map of the tree goes.
template <class T>
struct ArenaAllocator {
  using value_type = T;
  std::shared_ptr<std::pmr::monotonic_buffer_resource> arena;

  explicit ArenaAllocator(std::shared_ptr<std::pmr::monotonic_buffer_resource> a)
      : arena(std::move(a)) {}
  template <class U>
  ArenaAllocator(const ArenaAllocator<U>& other) : arena(other.arena) {}  // NOLINT
  T* allocate(std::size_t n) { return static_cast<T*>(arena->allocate(n * sizeof(T), alignof(T))); }
  void deallocate(T* /*p*/, std::size_t /*n*/) noexcept {}
  template <class U>
  bool operator==(const ArenaAllocator<U>& other) const {
    return arena == other.arena;
  }
};

}  // namespace

std::shared_ptr<XmlMap> XMLController::newMap() {
  // Outside a parse (the builder driven directly) maps come from the ordinary heap.
  if (!arena_) return std::make_shared<XmlMap>();
  return std::allocate_shared<XmlMap>(ArenaAllocator<XmlMap>(arena_),
                                      XmlMap::allocator_type(arena_.get()));
}

void XMLController::didStartElement(
    const std::string& name, const std::vector<std::pair<std::string, std::string>>& attributes) {
  auto element = newMap();
  for (const auto& [key, value] : attributes) element->insert_or_assign(key, value);
  enterElement(name, std::move(element));
}

void XMLController::didStartElementFlat(std::string_view name, const char* const* nameValuePairs) {
  auto element = newMap();
  // Expat passes name/value pairs and repeats no name.
  for (const char* const* a = nameValuePairs; a != nullptr && *a != nullptr; a += 2) {
    element->try_emplace(a[0], std::string(a[1]));
  }
  enterElement(std::string(name), std::move(element));
}

void XMLController::enterElement(std::string name, std::shared_ptr<XmlMap> element) {
  if (dictionaryStack_.empty()) {
    container_ = newMap();
    dictionaryStack_.push_back(container_.get());
  }
  XmlMap* raw = element.get();
  XmlMap& parent = *dictionaryStack_.back();
  auto [it, inserted] = parent.try_emplace(std::move(name), std::move(element));
  if (!inserted) {
    if (XmlList* siblings = it->second.list()) {
      siblings->emplace_back(std::move(element));
    } else {
      // An earlier sibling's map, or an attribute of the same name: both become the
      // first entry of the list.
      auto list = std::make_shared<XmlList>();
      list->reserve(4);
      list->push_back(std::move(it->second));
      list->emplace_back(std::move(element));
      it->second = XmlValue(std::move(list));
    }
  }
  dictionaryStack_.push_back(raw);
  // Text before a child's start is dropped: only what follows the last child is kept.
  if (stringXMLParsing_) stringXMLParsing_->clear();
}

void XMLController::foundCharacters(std::string_view piece) {
  if (!stringXMLParsing_) {
    stringXMLParsing_.emplace();
    stringXMLParsing_->reserve(64);
  }
  stringXMLParsing_->append(piece);
}

void XMLController::didEndElement() {
  if (dictionaryStack_.size() <= 1) return;
  if (stringXMLParsing_ && !stringXMLParsing_->empty()) {
    // Copied, not moved, so that the buffer keeps its capacity for the next element.
    static const std::string kText = "text";
    dictionaryStack_.back()->insert_or_assign(kText, *stringXMLParsing_);
    stringXMLParsing_->clear();
  }
  dictionaryStack_.pop_back();
}

void XMLController::parseErrorOccurred() {
  stringXMLParsing_.reset();
}

std::string XMLController::stringWithKey(const std::string& key) const {
  return stringWithKey(key, dicRoot_);
}

XmlList XMLController::arrayWithKey(const std::string& key) const {
  return arrayWithKey(key, dicRoot_);
}

namespace {

// Text stored in a map's "text" entry. Reading anything else as text is the same fault as
// reading a string through a list, and fails the same way.
std::string textOf(const XmlValue& v) {
  if (v.isNone()) return "";
  if (const std::string* s = v.string()) return *s;
  throw PlatformError("XML value read as text is not a string");
}

}  // namespace

std::string XMLController::stringWithKey(const std::string& key, const XmlValue& dic) {
  const XmlMap* m = dic.map();
  if (m == nullptr) return "";
  if (m->size() == 1 && m->begin()->first == "text") return textOf(m->begin()->second);
  XmlValue v = dic[key];
  if (v.isNone()) return "";
  if (v.map() == nullptr) throw PlatformError("XML value under \"" + key + "\" is not an element");
  return textOf(v["text"]);
}

XmlList XMLController::arrayWithKey(const std::string& key, const XmlValue& dic) {
  XmlValue v = dic[key];
  if (const XmlList* l = v.list()) return *l;
  if (v.isNone()) return {};
  return XmlList{std::move(v)};
}

}  // namespace tovani
