// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::viewResize_TNSDK() {}
void tovaniViewer::resizePortrait() {}
void tovaniViewer::resizeLandscape() {}
void tovaniViewer::orientationChanged() {}

}  // namespace tovani
