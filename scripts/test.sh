#!/usr/bin/env bash
# Installs what is missing, builds the debug preset (AddressSanitizer + UBSan, warnings as
# errors) and runs the whole suite: unit, integration, end-to-end.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset debug >/dev/null
cmake --build --preset debug -j"$jobs"
# The desktop adapters' tests need a display: without one, a virtual X server for the run.
if [ -z "${DISPLAY:-}" ] && command -v Xvfb >/dev/null; then
  display_file=$(mktemp)
  Xvfb -displayfd 3 -screen 0 1600x1200x24 -nolisten tcp 3>"$display_file" 2>/dev/null &
  xvfb_pid=$!
  trap 'kill "$xvfb_pid" 2>/dev/null; rm -f "$display_file"' EXIT
  for _ in $(seq 100); do [ -s "$display_file" ] && break; sleep 0.1; done
  export DISPLAY=":$(cat "$display_file")"
fi
set +e
ctest --preset debug -j"$jobs" 2>&1 | tee build/debug/ctest.log
status=${PIPESTATUS[0]}
set -e
# Every fuzz target briefly (clang build included): one that stops building or crashes at
# once fails the run. TOVANI_FUZZ_SECONDS=0 leaves it out.
fuzz_seconds=${TOVANI_FUZZ_SECONDS:-10}
if [ "$fuzz_seconds" -gt 0 ] && ! ./scripts/fuzz.sh "$fuzz_seconds"; then
  echo "fuzz smoke run failed" >&2
  status=1
fi
# The runner's summary line closes the output, whatever came before it.
grep -E 'tests passed|tests failed' build/debug/ctest.log | tail -n 1
exit "$status"
