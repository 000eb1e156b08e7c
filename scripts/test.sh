#!/usr/bin/env bash
# Installs what is missing, builds the debug preset (AddressSanitizer + UBSan, warnings as
# errors) and runs the whole suite: unit, integration, end-to-end.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset debug >/dev/null
cmake --build --preset debug -j"$jobs"
set +e
# The desktop tests open real windows: without a display they get a virtual X server.
display=()
if [ -z "${DISPLAY:-}" ] && command -v xvfb-run >/dev/null; then
  display=(xvfb-run -a -s "-screen 0 1600x1200x24")
fi
"${display[@]}" ctest --preset debug -j"$jobs" 2>&1 | tee build/debug/ctest.log
status=${PIPESTATUS[0]}
set -e
# The runner's summary line closes the output, whatever came before it.
grep -E 'tests passed|tests failed' build/debug/ctest.log | tail -n 1
exit "$status"
