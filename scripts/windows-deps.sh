#!/usr/bin/env bash
# Builds the libraries the Windows build needs that Debian does not ship for
# MinGW-w64: libpng and giflib, from Debian's own source packages (the
# versions and the patches of the Linux build, so that both write the same
# PNG and GIF bytes). zlib
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
png_ready() { [ -f "$prefix/.libpng-source" ] && [ -f "$prefix/lib/libpng16.a" ] && [ -f "$prefix/include/png.h" ]; }
gif_ready() { [ -f "$prefix/.giflib-source" ] && [ -f "$prefix/lib/libgif.a" ] && [ -f "$prefix/include/gif_lib.h" ]; }
if png_ready && gif_ready; then
  exit 0
fi
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

# Fetches and unpacks source package $1 into $work/src/$2 and prints its
# version: the newest that can be fetched (a mirror may list one it does not
# serve).
fetch_source() {
  local package=$1 dir=$2 v
  (
    cd "$work/src"
    rm -rf "$dir" "${package}"_*
    for v in $(apt-cache "${apt[@]}" showsrc "$package" | sed -n 's/^Version: //p' | sort -r -V -u); do
      rm -f "${package}"_*
      if apt-get "${apt[@]}" -qq source --download-only "$package=$v" >/dev/null 2>&1; then
        dpkg-source --no-check -x "${package}"_*.dsc "$dir" >/dev/null
        echo "$v"
        exit 0
      fi
    done
    echo "windows-deps: the source package $package cannot be fetched from the configured mirrors" >&2
    exit 1
  )
}

if ! png_ready; then
  echo "windows-deps: building libpng for $triplet into $prefix"
  fetched=$(fetch_source libpng1.6 libpng)
  build=$work/build-libpng
  rm -rf "$build"
  cmake -S "$work/src/libpng" -B "$build" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/mingw-w64-x86_64.cmake" \
    -DTHERMOKIT_WINDOWS_DEPS="$prefix" \
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" \
    -DPNG_SHARED=OFF -DPNG_STATIC=ON -DPNG_TESTS=OFF -DPNG_EXECUTABLES=OFF \
    -DSKIP_INSTALL_PROGRAMS=ON -DSKIP_INSTALL_FILES=ON >/dev/null
  nice cmake --build "$build" >/dev/null
  cmake --install "$build" >/dev/null
  echo "$fetched" >"$prefix/.libpng-source"
  rm -rf "$build" "$work/src/libpng"
  echo "windows-deps: libpng $fetched ready"
fi

if ! gif_ready; then
  # giflib has a plain Makefile: its library is a handful of C files, compiled
  # here as the Makefile lists them (libgif.a and gif_lib.h, nothing else).
  echo "windows-deps: building giflib for $triplet into $prefix"
  fetched=$(fetch_source giflib giflib)
  src=$work/src/giflib
  objects=$(printf 'thermokit-objects:\n\t@echo $(OBJECTS)\n' | make -s -C "$src" -f Makefile -f - thermokit-objects)
  build=$work/build-giflib
  rm -rf "$build"
  mkdir -p "$build" "$prefix/lib" "$prefix/include"
  for o in $objects; do
    nice $triplet-gcc -O2 -std=gnu99 -Wall -c "$src/${o%.o}.c" -o "$build/$o"
  done
  (cd "$build" && $triplet-ar rcs libgif.a $objects)
  cp "$build/libgif.a" "$prefix/lib/libgif.a"
  cp "$src/gif_lib.h" "$prefix/include/gif_lib.h"
  echo "$fetched" >"$prefix/.giflib-source"
  rm -rf "$build" "$src"
  echo "windows-deps: giflib $fetched ready"
fi
