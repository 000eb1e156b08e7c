// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::prepareAD_TNSDK() {}
bool tovaniViewer::connectedToNetwork(const Text&) { return false; }
void tovaniViewer::adPlay_TNSDK() {}
void tovaniViewer::adClose_TNSDK() {}
void tovaniViewer::notification_send() {}
std::string tovaniViewer::adRequestURL(const std::string&) const { return {}; }

}  // namespace tovani
