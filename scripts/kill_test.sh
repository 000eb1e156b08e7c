#!/usr/bin/env bash
# Kills the SDK's cold start N times (default 1000) at random moments and checks the store and
# the video files after every kill (see tests/e2e/kill_test.cpp). Uses the debug build.
#   scripts/kill_test.sh [N]
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --build --preset debug --target test_e2e >/dev/null
TOVANI_KILLS=${1:-1000} ./build/debug/tests/test_e2e --gtest_filter='KillNine.*'
