#!/usr/bin/env bash
# Builds the Debian packages libtovani1 (shared libraries) and libtovani-dev (headers,
# archives, CMake package, pkg-config files) into build/package/, then checks them with
# lintian. Usage: scripts/package.sh [extra cmake arguments, e.g. -DTOVANI_PRODUCTION_HOST=...]
set -euo pipefail
cd "$(dirname "$0")/.."
build=build/package
# Debian's hardening and optimisation flags; the size-optimised build type comes last.
export CFLAGS="$(dpkg-buildflags --get CFLAGS)" CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS)"
export CPPFLAGS="$(dpkg-buildflags --get CPPFLAGS)" LDFLAGS="$(dpkg-buildflags --get LDFLAGS)"
CXXFLAGS="$CXXFLAGS $CPPFLAGS"
CFLAGS="$CFLAGS $CPPFLAGS"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel -DCMAKE_INSTALL_PREFIX=/usr \
  -DTOVANI_WERROR=ON -DTOVANI_BUILD_TOOLS=OFF -DTOVANI_BUILD_TESTS=OFF -DTOVANI_BUILD_BENCH=OFF \
  "$@" >/dev/null
cmake --build "$build"
(cd "$build" && rm -f ./*.deb && cpack -G DEB >/dev/null)
debs=("$build"/*.deb)
printf 'built %s\n' "${debs[@]}"
# lintian exits non-zero on errors only; warnings and notes are printed for the record.
lintian --fail-on error --tag-display-limit 0 "${debs[@]}"
echo "package: lintian reports no errors"
