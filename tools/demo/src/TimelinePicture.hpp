#pragma once
#include <string>

#include "tovani/demo/Demo.hpp"

namespace tovani::demo {

// An SVG picture of one showing: lanes for stages, countdown, beacons (with the status the
// adapter reported), actions, the end card and the result on one time axis. Written as a standalone
// .svg, or wrapped in a small HTML page when `path` ends in .html.
bool writeTimelinePicture(const ShowingReport& showing, const std::string& title,
                          const std::string& path);

}  // namespace tovani::demo
