#include <gtest/gtest.h>

#include "support/ChildProcess.hpp"

namespace tovani::test {
namespace {

// The facade and its viewer live as long as the process: a host that returns from main or
// calls exit() while an ad is on screen or its inventory is on the way ends cleanly.
TEST(ProcessExit, AHostLeavingDuringAShowingOnTheEndCardOrDuringDownloadsEndsCleanly) {
  for (const char* moment : {"showing", "endcard", "downloads"}) {
    for (const char* how : {"return", "exit"}) {
      const ChildEnd end = runChild({TOVANI_EXIT_HOST, moment, how}, 60);
      EXPECT_EQ(0, end.exitCode) << moment << " " << how << "\n" << end.errors;
      EXPECT_EQ(0, end.signal) << moment << " " << how;
      EXPECT_EQ(std::string::npos, end.errors.find("Sanitizer")) << end.errors;
    }
  }
}

}  // namespace
}  // namespace tovani::test
