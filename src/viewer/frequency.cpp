// PLACEHOLDER: replaced by the real flow; keeps the library linking meanwhile.
#include "viewer/tovaniViewer.hpp"

namespace tovani {

std::optional<std::string> tovaniViewer::getFreqPassVideoPath(const Text&, const std::string&, const Text&) { return std::nullopt; }

}  // namespace tovani
