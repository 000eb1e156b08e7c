#pragma once
#include <memory>
#include <string>

namespace tovani {

class tovaniViewer;

// The viewer the facade owns ("mainViewer"), exported process-wide.
std::shared_ptr<tovaniViewer> mainViewer();

// True once the singleton exists.
bool facadeStarted();

// One line to the installed platform's log, or to standard error before there is one.
void facadeLogLine(const std::string& line);

// Forgets the singleton, its viewer and the installed platform, as a new process would.
void resetFacadeForTesting();

}  // namespace tovani
