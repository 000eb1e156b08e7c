#!/usr/bin/env bash
# Installs every Debian package the build, the tests, the ad server and the demo need.
# Idempotent: packages already at their newest version are left alone, and the package
# index is refreshed once per run. Listing the runtime libraries that parse network
# input (expat, SQLite, curl) pulls in their current security updates as well.
set -euo pipefail

packages=(
  # toolchain
  build-essential cmake ninja-build pkg-config clang clang-format libclang-rt-14-dev
  # core: store, XML, JSON, URL parsing (runtime libraries named so updates are taken)
  libsqlite3-dev libsqlite3-0 sqlite3 libexpat1-dev libexpat1 nlohmann-json3-dev liburiparser-dev
  # Linux platform: HTTP, main loop, player
  libcurl4-openssl-dev libcurl4 ca-certificates libglib2.0-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-tools
  gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly gstreamer1.0-libav
  # desktop platform: GTK 3 widgets, video in the window, WebKitGTK end card
  libgtk-3-dev libwebkit2gtk-4.1-dev gstreamer1.0-gtk3
  # desktop tests and screenshots: a virtual X server, real pointer input (XTest)
  xvfb xauth libxtst-dev xdotool imagemagick
  # a font with the countdown label's Hangul syllable, so screenshots draw it
  fonts-nanum
  # development ad server
  libcpp-httplib-dev libssl-dev openssl
  # demo host
  libcxxopts-dev
  # tests and benchmarks
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  # installed-SDK tests (Python host) and Debian packaging (scripts/package.sh)
  python3 dpkg-dev lintian file
)

SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

export DEBIAN_FRONTEND=noninteractive
if [ "${#missing[@]}" -gt 0 ] || [ "${TOVANI_SETUP_UPGRADE:-1}" = 1 ]; then
  $SUDO apt-get update -qq
  # Installing the full list (not only the missing ones) upgrades the parsers of
  # network input to the newest security release the archive offers.
  $SUDO apt-get install -y -qq --no-install-recommends "${packages[@]}" >/dev/null
fi
echo "setup: all build and test packages are installed"
