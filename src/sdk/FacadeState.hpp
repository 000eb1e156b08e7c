#pragma once
#include <memory>

namespace tovani {

class tovaniViewer;

// The viewer the facade owns ("mainViewer"), exported process-wide.
std::shared_ptr<tovaniViewer> mainViewer();

// Forgets the singleton, its viewer and the installed platform, as a new process would.
void resetFacadeForTesting();

}  // namespace tovani
