#!/bin/sh
# Creates the build's private Wine prefix (never ~/.wine) and keeps one
# wineserver alive, so the many short test processes start warm.
set -e
build="${1:-build}"
export WINEPREFIX="$(cd "$build" && pwd)/wineprefix"
export WINEDEBUG=-all
unset DISPLAY WAYLAND_DISPLAY
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  echo "Creating the Wine prefix $WINEPREFIX"
  wineboot -i >/dev/null 2>&1 || true
  wineserver -w
fi
# An already running server answers with an error; it serves just as well.
wineserver -p 120 2>/dev/null || true
