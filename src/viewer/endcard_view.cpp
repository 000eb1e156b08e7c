// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::tnEndCard() {}
void tovaniViewer::tnEndCardViewState(bool) {}
bool tovaniViewer::shouldStartLoadWithRequest(const WebRequest&) { return false; }

}  // namespace tovani
