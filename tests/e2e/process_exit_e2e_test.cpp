// A host on the real Linux adapters that leaves while the SDK works, against the development
// ad server: threads of curl, GStreamer and the main loop included, the process ends cleanly.
#include <gtest/gtest.h>

#include <utility>

#include "support/ChildProcess.hpp"

namespace tovani::test {
namespace {

TEST(ProcessExitLinux, AHostLeavingDuringDownloadsAShowingOrOnTheEndCardEndsCleanly) {
  const std::pair<const char*, const char*> cases[] = {
      {"downloads", "exit"}, {"showing", "return"}, {"showing", "exit"}, {"endcard", "exit"}};
  for (const auto& [moment, how] : cases) {
    const ChildEnd end = runChild({TOVANI_EXIT_HOST_LINUX, moment, how}, 120);
    EXPECT_EQ(0, end.exitCode) << moment << " " << how << "\n" << end.errors;
    EXPECT_EQ(0, end.signal) << moment << " " << how;
    EXPECT_EQ(std::string::npos, end.errors.find("Sanitizer")) << end.errors;
  }
}

}  // namespace
}  // namespace tovani::test
