#!/usr/bin/env bash
# Installs the Debian packages the build needs, then the libraries the Windows
# build needs that Debian does not ship for MinGW-w64 (scripts/windows-deps.sh).
# Idempotent: when everything is already there it only checks and returns.
set -euo pipefail
packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libcli11-dev nlohmann-json3-dev
  libpng-dev libsqlite3-dev zlib1g-dev libgif-dev
  libcpp-httplib-dev chromium chromium-driver python3-selenium python3-pytest python3-numpy
  libaravis-dev aravis-tools libusb-1.0-0-dev
  pybind11-dev python3-dev
  libtbb-dev
  python3-dask python3-distributed python3-pytest-timeout
  clang libclang-rt-14-dev
  # Windows: MinGW-w64 (POSIX threads), zlib for it, GoogleTest's sources,
  # dpkg-source (the source packages of libpng and giflib), Wine to run the programs
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix libz-mingw-w64-dev
  googletest dpkg-dev make wine64
)
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "bootstrap: installing ${missing[*]}"
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
bash "$(dirname "$0")/windows-deps.sh"
