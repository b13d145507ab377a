#!/bin/bash
# Runs the benchmark program under Wine. Figures are ratios against baselines
# measured in the same run.
set -e
build="$(cd "${1:-build}" && pwd)"
shift || true
echo "Machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ //'), Wine $(wine --version 2>/dev/null)"
"$build/wine-run.sh" "$build/bin/kvbench.exe" "$@" | tr -d '\r'
bash "$(dirname "$0")/bench_forward.sh" "$build"
