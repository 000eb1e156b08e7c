#include "TestSupport.hpp"

#include <expat.h>

namespace tovani::adserver::testing {

RunningServer::RunningServer(const std::string& scenarioText) {
  Options options;
  options.scenarioText = scenarioText;
  server_ = std::make_unique<AdServer>(options);
  server_->start();
}

httplib::Result RunningServer::get(const std::string& target, const std::string& host,
                                   double timeoutSeconds) {
  httplib::Client client("127.0.0.1", server_->httpPort());
  client.set_read_timeout(std::chrono::duration<double>(timeoutSeconds));
  return client.Get(target, {{"Host", host.empty() ? server_->hosts().production : host}});
}

httplib::Result RunningServer::post(const std::string& target, const std::string& body,
                                    const std::string& contentType, const std::string& host) {
  httplib::Client client("127.0.0.1", server_->httpPort());
  return client.Post(target, {{"Host", host.empty() ? server_->hosts().production : host}}, body,
                     contentType);
}

std::string adRequest(const std::string& slotSegment, const std::string& kind) {
  return "/cgi-bin/conad_tovani.fcgi/MEDIA1/" + slotSegment + "?xml=" + kind +
         "&cat2=&vendor=2&osv=10.3&device=iPhone9%252C3&vdid=&sdk=1.1.2&ac=10";
}

std::vector<const XmlNode*> XmlNode::all(const std::string& child) const {
  std::vector<const XmlNode*> out;
  for (const auto& c : children) {
    if (c.name == child) out.push_back(&c);
  }
  return out;
}

const XmlNode* XmlNode::first(const std::string& path) const {
  const XmlNode* node = this;
  std::size_t start = 0;
  while (node != nullptr && start <= path.size()) {
    const auto slash = path.find('/', start);
    const auto found = node->all(path.substr(start, slash - start));
    node = found.empty() ? nullptr : found.front();
    if (slash == std::string::npos) break;
    start = slash + 1;
  }
  return node;
}

namespace {

struct Builder {
  XmlNode root;
  std::vector<XmlNode*> open;
};

void XMLCALL startElement(void* data, const XML_Char* name, const XML_Char** attrs) {
  auto& b = *static_cast<Builder*>(data);
  XmlNode node;
  node.name = name;
  for (int i = 0; attrs[i] != nullptr; i += 2) node.attributes[attrs[i]] = attrs[i + 1];
  if (b.open.empty()) {
    b.root = std::move(node);
    b.open.push_back(&b.root);
  } else {
    b.open.back()->children.push_back(std::move(node));
    b.open.push_back(&b.open.back()->children.back());
  }
}

void XMLCALL endElement(void* data, const XML_Char*) {
  static_cast<Builder*>(data)->open.pop_back();
}

void XMLCALL characters(void* data, const XML_Char* s, int len) {
  auto& b = *static_cast<Builder*>(data);
  if (!b.open.empty()) b.open.back()->text.append(s, static_cast<std::size_t>(len));
}

}  // namespace

std::optional<XmlNode> parseXml(const std::string& text) {
  Builder builder;
  XML_Parser parser = XML_ParserCreate("UTF-8");
  XML_SetUserData(parser, &builder);
  XML_SetElementHandler(parser, startElement, endElement);
  XML_SetCharacterDataHandler(parser, characters);
  const bool ok = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
  XML_ParserFree(parser);
  if (!ok) return std::nullopt;
  return builder.root;
}

std::string lastPathComponent(const std::string& url) {
  const auto path = url.substr(0, url.find_first_of("?#"));
  return path.substr(path.rfind('/') + 1);
}

}  // namespace tovani::adserver::testing
