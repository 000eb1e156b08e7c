#pragma once

namespace tovani::demo {

// The demo runs as a new process would: with the SDK's process-wide state at load time.
// runDemo may be called more than once in one process (the end-to-end tests do), so the
// state is put back before and after each run. The only place the demo reaches past the
// public headers.
void startAsFreshProcess();
void endAsFreshProcess();

}  // namespace tovani::demo
