// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

void tovaniViewer::deleteMp4File(int64_t) {}
void tovaniViewer::notExsistVideoFile(const std::string&) {}

}  // namespace tovani
