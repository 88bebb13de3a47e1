#!/bin/sh
# Runs a Windows program of the MinGW-w64 build under Wine: the emulator CMake
# and ctest start the tests through (CMAKE_CROSSCOMPILING_EMULATOR).
#
#   wine-run.sh PROGRAM.exe ARGS...
#   wine-run.sh --start-server    make the prefix, keep one Wine server running
#   wine-run.sh --stop-server     end it (and every program of the prefix)
#
# WINEPREFIX defaults to build/wineprefix in the source tree, made on first use
# (quietly, without a display; two parallel first uses wait for each other).
# WINEPATH gets the folders of the MinGW runtime DLLs, which programs of the
# shared build load.
set -e
here=$(cd "$(dirname "$0")" && pwd)
WINEPREFIX=${WINEPREFIX:-$here/../build/wineprefix}
WINEDEBUG=${WINEDEBUG:--all}
# No Mono or Gecko installers when the prefix is made, and no desktop menus
# (winemenubuilder fails without a display).
WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=;winemenubuilder.exe=d}
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES
unset DISPLAY WAYLAND_DISPLAY

wine=${THERMOKIT_WINE:-}
if [ -z "$wine" ]; then
  for w in /usr/lib/wine/wine64 "$(command -v wine64 || true)" "$(command -v wine || true)"; do
    if [ -n "$w" ] && [ -x "$w" ]; then wine=$w; break; fi
  done
fi
if [ -z "$wine" ]; then
  echo "wine-run.sh: Wine is not installed (Debian package wine64)" >&2
  exit 127
fi

server=$(dirname "$wine")/wineserver
[ -x "$server" ] || server=$(command -v wineserver || echo wineserver)

if [ "${1:-}" = --stop-server ]; then
  "$server" -k 2>/dev/null || true
  exit 0
fi

runtime=""
for d in /usr/lib/gcc/x86_64-w64-mingw32/*-posix /usr/x86_64-w64-mingw32/lib; do
  [ -d "$d" ] && runtime="$runtime;Z:$(printf '%s' "$d" | tr / '\\')"
done
WINEPATH="${runtime#;}${WINEPATH:+;$WINEPATH}"
export WINEPATH

if [ ! -f "$WINEPREFIX/system.reg" ]; then
  mkdir -p "$(dirname "$WINEPREFIX")"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
      "$wine" wineboot --init >/dev/null 2>&1 || true
    fi
  ) 9>"$WINEPREFIX.lock"
fi
if [ "${1:-}" = --start-server ]; then
  # The server wineboot started may still be running: wait for it to end
  # (a persistent one never does: bounded), then start the persistent one;
  # when one is already running for the prefix, it is kept.
  timeout 20 "$server" -w 2>/dev/null || true
  "$server" -p 2>/dev/null || true
  # The prefix's services (services.exe, winedevice.exe, ...) start with the
  # first program and live as long as the server: started here, they hold no
  # test's output open (a test runner would wait for them to close it).
  "$wine" wineboot </dev/null >/dev/null 2>&1 || true
  exit 0
fi
exec "$wine" "$@"
