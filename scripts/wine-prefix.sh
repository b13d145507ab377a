#!/bin/sh
# Creates the build's private Wine prefix (never ~/.wine) and keeps one
# wineserver alive, so the many short test processes start warm.
set -e
build="${1:-build}"
export WINEPREFIX="$(cd "$build" && pwd)/wineprefix"
export WINEDEBUG=-all
unset DISPLAY WAYLAND_DISPLAY
mkdir -p "$WINEPREFIX"
# A persistent server first; one that is already running serves just as well.
wineserver -p 120 2>/dev/null || true
if [ ! -f "$WINEPREFIX/system.reg" ] || [ ! -d "$WINEPREFIX/drive_c/windows/system32" ]; then
  echo "Creating the Wine prefix $WINEPREFIX"
  wineboot -i >/dev/null 2>&1 || true
fi
