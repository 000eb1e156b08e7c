#pragma once
#include <httplib.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tovani/adserver/AdServer.hpp"

namespace tovani::adserver::testing {

// A server on ephemeral loopback ports for one test, with a plain-HTTP client that sends
// the Host header the SDK would send.
class RunningServer {
 public:
  explicit RunningServer(const std::string& scenarioText = {});
  AdServer& operator*() { return *server_; }
  AdServer* operator->() { return server_.get(); }

  httplib::Result get(const std::string& target, const std::string& host = {},
                      double timeoutSeconds = 10);
  httplib::Result post(const std::string& target, const std::string& body,
                       const std::string& contentType, const std::string& host = {});

 private:
  std::unique_ptr<AdServer> server_;
};

// The SDK's ad request path and query for `kind` ("json" or "vast").
std::string adRequest(const std::string& slotSegment, const std::string& kind);

// A parsed XML element, enough to walk a VAST answer.
struct XmlNode {
  std::string name;
  std::map<std::string, std::string> attributes;
  std::string text;
  std::vector<XmlNode> children;

  std::vector<const XmlNode*> all(const std::string& child) const;
  const XmlNode* first(const std::string& path) const;  // "InLine/Extensions/Etc"
};

// Parses `text` with expat; nothing when it is not well-formed XML.
std::optional<XmlNode> parseXml(const std::string& text);

std::string lastPathComponent(const std::string& url);

}  // namespace tovani::adserver::testing
