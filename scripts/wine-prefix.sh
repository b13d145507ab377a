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
created=""
if [ ! -f "$WINEPREFIX/system.reg" ] || [ ! -d "$WINEPREFIX/drive_c/windows/system32" ]; then
  echo "Creating the Wine prefix $WINEPREFIX"
  wineboot -i >/dev/null 2>&1 || true
  created=1
fi
# No post-mortem debugger in this prefix: Wine would start winedbg for every
# crash a test provokes on purpose (seconds each); an unstartable debugger makes
# the crashing process end at once with its exception code, as on a machine
# without one.
aedebug='HKLM\Software\Microsoft\Windows NT\CurrentVersion\AeDebug'
if ! wine reg query "$aedebug" /v Debugger 2>/dev/null | grep -q kv_no_debugger; then
  wine reg add "$aedebug" /v Debugger /t REG_SZ /d 'kv_no_debugger.exe %ld %ld' /f >/dev/null 2>&1 || true
fi
# The first boot of a new prefix can leave two service managers running side
# by side, each answering every other request (a service one creates is
# unknown to the other); one restart of the server leaves a single one.
if [ -n "$created" ]; then
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  wineserver -p 120 2>/dev/null || true
fi
