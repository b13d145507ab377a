#!/bin/bash
# Forwarding figures: lines per second from one station's debug log to a
# private rsyslog over TCP, against kvdiag tail -f reading the same backlog
# into a file; and the writer's own pace with and without a forwarder
# following it (the forwarder is another process and takes no lock a writer
# waits on, so the cost per written line should be none).
set -e
build="$(cd "${1:-build}" && pwd)"
lines=${2:-50000}
run="$build/wine-run.sh"
export WINEPREFIX="$build/wineprefix" WINEDEBUG=-all
unset DISPLAY WAYLAND_DISPLAY
command -v rsyslogd >/dev/null || { echo "forward bench: rsyslogd not installed, skipped"; exit 0; }
root="$build/bench/forward"
rm -rf "$root" && mkdir -p "$root/Config" "$root/state" "$root/collector"
root_win="$("$run" winepath -w "$root" | tr -d '\r')"
ini="$root_win\\Config\\product.ini"
printf '[KVEDIT]\r\nCONFIG=%s\\Config\r\nLOGS=%s\\Logs\r\n' "$root_win" "$root_win" >"$root/Config/product.ini"
# The writer: the test host under a name of its own (default settings: 4 MB logs).
cp "$build/bin/scenario_host.exe" "$build/bin/kvfwbench.exe"
trap 'rm -f "$build/bin/kvfwbench.exe"; bash "$(dirname "$0")/../tests/forward/collector.sh" stop "$root/collector"' EXIT
now() { date +%s.%N; }
calc() { awk "BEGIN { printf \"%.0f\", $1 }"; }
free_port() {
  local p
  while :; do
    p=$((20000 + RANDOM % 40000))
    (exec 3<>/dev/tcp/127.0.0.1/$p) 2>/dev/null || { echo $p; return; }
  done
}
write() {  # write COMPONENT: prints seconds taken
  local t0=$(now)
  "$run" "$build/bin/kvfwbench.exe" log_script "$ini" "comp=$1" "lines=$lines" >/dev/null
  calc "($(now) - $t0) * 1000"
}
port=$(free_port)
bash "$(dirname "$0")/../tests/forward/collector.sh" start "$root/collector" "$port" tcp

alone=$(write Backlog)
# A cursor at the very start: the forwarder sends the whole backlog.
printf 'kvdiag forward cursor 1\n' >"$root/state/debug.Backlog.log.cursor"
t0=$(now)
"$run" "$build/bin/kvdiag.exe" forward --to "tcp://127.0.0.1:$port" Backlog --state "$root_win\\state" --ini "$ini" 2>/dev/null &
fwd=$!
received() { cat "$root/collector/messages.log" 2>/dev/null | wc -l; }
until [ "$(received)" -ge "$lines" ]; do sleep 0.05; done
t1=$(now)
t2=$(now)
"$run" "$build/bin/kvdiag.exe" tail -f Backlog -n "$lines" --for 0.2 --ini "$ini" >"$root/tail.txt"
t3=$(now)
kill $fwd 2>/dev/null; wait $fwd 2>/dev/null || true
# The writer again, now with a forwarder following its log live.
"$run" "$build/bin/kvdiag.exe" forward --to "tcp://127.0.0.1:$port" Live --state "$root_win\\state" --ini "$ini" 2>/dev/null &
fwd=$!
sleep 2
followed=$(write Live)
kill $fwd 2>/dev/null; wait $fwd 2>/dev/null || true

echo "forward bench: $lines lines of one debug log"
echo "  to rsyslog over TCP (kvdiag forward):  $(calc "$lines / ($t1 - $t0)") lines/s"
echo "  into a file (kvdiag tail -f):          $(calc "$lines / ($t3 - $t2 - 0.2)") lines/s"
echo "  writer alone / with a forwarder live:  $(calc "$lines * 1000 / $alone") / $(calc "$lines * 1000 / $followed") lines/s"
