#include "Documents.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tovani::adserver {
namespace {

std::string clock(double seconds) {
  const long total = std::lround(std::max(0.0, seconds));
  char text[64];
  std::snprintf(text, sizeof text, "%02ld:%02ld:%02ld", total / 3600, total / 60 % 60, total % 60);
  return text;
}

void element(std::string& out, int indent, std::string_view name, std::string_view text) {
  out.append(static_cast<std::size_t>(indent), ' ');
  out += "<" + std::string(name) + ">" + escapeXml(text) + "</" + std::string(name) + ">\n";
}

void renderAd(std::string& out, const VastAd& ad) {
  out += "  <Ad id=\"" + escapeXml(ad.id) + "\">\n";
  out += "    <InLine>\n";
  element(out, 6, "AdSystem", "tovani development ad server");
  element(out, 6, "AdTitle", "ad " + ad.id);
  out += "      <Creatives>\n        <Creative>\n          <Linear>\n";
  element(out, 12, "Duration", clock(ad.duration));
  out += "            <TrackingEvents>\n";
  for (const auto& [event, url] : ad.tracking) {
    out += "              <Tracking event=\"" + escapeXml(event) + "\">" + escapeXml(url) +
           "</Tracking>\n";
  }
  out += "            </TrackingEvents>\n            <MediaFiles>\n";
  out += "              <MediaFile delivery=\"progressive\" type=\"" + escapeXml(ad.mimetype) +
         "\" width=\"" + std::to_string(ad.width) + "\" height=\"" + std::to_string(ad.height) +
         "\">" + escapeXml(ad.mediaUrl) + "</MediaFile>\n";
  out +=
      "            </MediaFiles>\n          </Linear>\n        </Creative>\n      </Creatives>\n";
  out += "      <Extensions>\n";
  for (const auto& [name, text] : ad.extensions) element(out, 8, name, text);
  out += "      </Extensions>\n    </InLine>\n  </Ad>\n";
}

}  // namespace

std::string escapeXml(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string renderVast(const std::vector<VastAd>& ads, std::size_t first) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<VAST version=\"2.0\">\n";
  for (std::size_t i = 0; i < ads.size(); ++i) renderAd(out, ads[(first + i) % ads.size()]);
  out += "</VAST>\n";
  return out;
}

std::string renderAdList(const nlohmann::json& adverts, const std::string& uuid) {
  return nlohmann::json{{"uuid", uuid}, {"adverts", adverts}}.dump(
      -1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Half of the real document followed by a fragment that no parser state can accept: it
// either closes the string the cut ended in and then breaks the syntax, or is itself a
// string followed by a stray letter.
std::string malformedJson(std::string_view body) {
  return std::string(body.substr(0, body.size() / 2)) + "\",]}{\"x";
}

// The root element is never closed and the tags that follow do not match.
std::string malformedXml(std::string_view body) {
  return std::string(body.substr(0, body.size() / 2)) + "<Ad id=\"broken\"><InLine></Ad>";
}

}  // namespace tovani::adserver
