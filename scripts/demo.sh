#!/bin/bash
# The main job: a sample product installation inside the build tree, and
# kvdiag run against it the way an engineer would on a plant machine. Each
# step is one script in scripts/demo/, run in name order.
set -e
build="$(cd "${1:-build}" && pwd)"
export KV_BUILD="$build"
export KV_RUN="$build/wine-run.sh"
export WINEPREFIX="$build/wineprefix" WINEDEBUG=-all
unset DISPLAY WAYLAND_DISPLAY
export DEMO_ROOT="$build/demo/Plant"
export DEMO_ROOT_WIN="$("$KV_RUN" winepath -w "$DEMO_ROOT" 2>/dev/null | tr -d '\r')"
kvdiag() { "$KV_RUN" "$build/bin/kvdiag.exe" "$@" | tr -d '\r'; }
for step in "$(dirname "$0")"/demo/*.sh; do
  . "$step"
done
