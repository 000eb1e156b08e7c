// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::tnADTimer() {}
void tovaniViewer::timeRemain() {}
void tovaniViewer::onPlaybackTick(double) {}

}  // namespace tovani
