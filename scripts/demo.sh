#!/usr/bin/env bash
# Installs what is missing, builds the demo host (release preset) and runs a whole showing
# against the bundled development ad server on loopback. Extra arguments go to the demo;
# see ./scripts/demo.sh --help.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
jobs=$(nproc 2>/dev/null || echo 2)
cmake --preset release >/dev/null
cmake --build --preset release --target tovani-demo -j"$jobs"
exec ./build/release/tools/demo/tovani-demo --timeline build/tovani-timeline.svg "$@"
