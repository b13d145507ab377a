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
wineserver -p 120 >/dev/null 2>&1 </dev/null || true
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
# unknown to the other); one restart of the server leaves a single one. A new
# persistent server is refused (exit code 2) while the old one still ends.
if [ -n "$created" ]; then
  wineserver -k 2>/dev/null || true
  wineserver -w 2>/dev/null || true
  for _ in $(seq 50); do
    wineserver -p 120 >/dev/null 2>&1 </dev/null && break
    sleep 0.1
  done
fi
# The prefix's own services are started here, inheriting only /dev/null:
# started by the first test instead, they would hold that test's output pipe
# open and ctest would wait for it until the test's time limit.
wine reg query "$aedebug" /v Debugger >/dev/null 2>&1 </dev/null || true
