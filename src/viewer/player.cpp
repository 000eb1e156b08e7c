// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::tnADPlayStart(const std::string&, const XmlValue&) {}
void tovaniViewer::init_player() {}

}  // namespace tovani
