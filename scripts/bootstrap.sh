#!/usr/bin/env bash
# Installs the Debian packages the build needs. Idempotent: when everything is
# already there it only checks and returns.
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
)
missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi
echo "bootstrap: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
