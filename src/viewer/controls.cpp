// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::init_images() {}
void tovaniViewer::imageArray() {}
void tovaniViewer::skipevent_click() {}
void tovaniViewer::actionevent_click() {}

}  // namespace tovani
