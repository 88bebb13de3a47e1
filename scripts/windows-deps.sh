#!/usr/bin/env bash
# Builds the libraries the Windows build needs that Debian does not ship for
# MinGW-w64: libpng, from Debian's own source package (the version and the
# patches of the Linux build, so that both write the same PNG bytes). zlib
# comes ready-made from libz-mingw-w64-dev; GoogleTest is compiled by the
# build itself from /usr/src/googletest; CLI11 and nlohmann-json are headers.
#
# The source package is fetched with apt-get source through a private apt
# configuration (deb-src entries for the mirrors the machine already uses):
# the machine's own apt setup is left as it is. The result goes to
# build/deps/x86_64-w64-mingw32 (THERMOKIT_WINDOWS_DEPS overrides), which the
# toolchain file cmake/mingw-w64-x86_64.cmake searches. Run again, it only
# checks and returns.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
triplet=x86_64-w64-mingw32
prefix=${THERMOKIT_WINDOWS_DEPS:-$root/build/deps/$triplet}
work=$root/build/deps/work
stamp=$prefix/.libpng-source

if [ -f "$stamp" ] && [ -f "$prefix/lib/libpng16.a" ] && [ -f "$prefix/include/png.h" ]; then
  exit 0
fi
echo "windows-deps: building libpng for $triplet into $prefix"
mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/src"

# deb-src twins of the machine's deb entries (one-line and deb822 forms).
sources=$work/apt/sources.list
: >"$sources"
for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ -f "$f" ] || continue
  sed -n 's/^[[:space:]]*deb[[:space:]]\+\(\[[^]]*\][[:space:]]\+\)\?/deb-src /p' "$f" >>"$sources"
done
for f in /etc/apt/sources.list.d/*.sources; do
  [ -f "$f" ] || continue
  awk 'function flush() { if (uris != "" && types ~ /(^| )deb( |$)/) { n = split(suites, s, " ");
         for (i = 1; i <= n; i++) print "deb-src " uris " " s[i] " " comps }
         types = uris = suites = comps = "" }
       /^[[:space:]]*$/ { flush(); next }
       /^Types:/ { sub(/^Types:[[:space:]]*/, ""); types = $0 }
       /^URIs:/ { sub(/^URIs:[[:space:]]*/, ""); uris = $0 }
       /^Suites:/ { sub(/^Suites:[[:space:]]*/, ""); suites = $0 }
       /^Components:/ { sub(/^Components:[[:space:]]*/, ""); comps = $0 }
       END { flush() }' "$f" >>"$sources"
done
apt=(-o "Dir::Etc::SourceList=$sources" -o "Dir::Etc::SourceParts=$work/apt/none"
     -o "Dir::State::Lists=$work/apt/lists" -o "Dir::Cache=$work/apt/cache"
     -o "APT::Sandbox::User=root")
apt-get "${apt[@]}" -qq update

# The newest version that can be fetched (a mirror may list one it does not serve).
cd "$work/src"
rm -rf libpng
fetched=""
for v in $(apt-cache "${apt[@]}" showsrc libpng1.6 | sed -n 's/^Version: //p' | sort -r -V -u); do
  rm -f libpng1.6_*
  if apt-get "${apt[@]}" -qq source --download-only "libpng1.6=$v" >/dev/null 2>&1; then
    fetched=$v
    break
  fi
done
if [ -z "$fetched" ]; then
  echo "windows-deps: the source package libpng1.6 cannot be fetched from the configured mirrors" >&2
  exit 1
fi
dpkg-source --no-check -x libpng1.6_*.dsc libpng >/dev/null

build=$work/build-libpng
rm -rf "$build"
cmake -S libpng -B "$build" -G Ninja \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
  -DTHERMOKIT_WINDOWS_DEPS="$prefix" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
  -DPNG_SHARED=OFF -DPNG_STATIC=ON -DPNG_TESTS=OFF -DPNG_EXECUTABLES=OFF \
  -DSKIP_INSTALL_PROGRAMS=ON -DSKIP_INSTALL_FILES=ON >/dev/null
nice cmake --build "$build" >/dev/null
cmake --install "$build" >/dev/null
echo "$fetched" >"$stamp"
rm -rf "$build" "$work/src/libpng"
echo "windows-deps: libpng $fetched ready"
