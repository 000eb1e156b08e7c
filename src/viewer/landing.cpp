#include "net/Url.hpp"
#include "net/UrlEncoding.hpp"
#include "viewer/tovaniViewer.hpp"

namespace tovani {

namespace {

// Map links leave through this web maps service (a build setting); its "ll" key takes
// "latitude,longitude".
constexpr const char* kMapsWebBaseUrl = TOVANI_MAPS_URL;
constexpr const char* kGeoScheme = "geo";

}  // namespace

std::optional<std::string> tovaniViewer::mapsAddressForGeoHost(const std::string& host) {
  if (host.empty()) return std::nullopt;
  // Escapes are undone over the whole address, so "%2C" becomes the comma the maps
  // service expects. A result that is not UTF-8 or no longer a URL has nowhere to go.
  std::string address = percentDecode(std::string(kMapsWebBaseUrl) + host);
  if (!isValidUtf8(address)) return std::nullopt;
  const auto parsed = parseUrl(address);
  if (!parsed || parsed->scheme.empty()) return std::nullopt;
  return address;
}

void tovaniViewer::landingUrl(const Text& url) {
  if (!url) return;
  const auto parsed = parseUrl(*url);
  // An unparsable click-through is no URL at all: the system would refuse it.
  if (!parsed) return;
  auto& application = *platform()->application;
  if (parsed->scheme == kGeoScheme) {
    // "geo:lat,long" (no slashes) has no host part to hand to the maps service.
    if (parsed->host.empty()) {
      log("tovani: geo link without a host part ignored: " + *url);
      return;
    }
    const auto address = mapsAddressForGeoHost(parsed->host);
    if (address && application.canOpenURL(*address)) application.openURL(*address);
    return;
  }
  if (application.canOpenURL(*url)) application.openURL(*url);
}

}  // namespace tovani
