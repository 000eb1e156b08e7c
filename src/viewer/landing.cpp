// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::landingUrl(const Text&) {}
std::optional<std::string> tovaniViewer::mapsAddressForGeoHost(const std::string&) { return std::nullopt; }

}  // namespace tovani
