# Following: kvdiag tail -f watches a driver's log for a few seconds while
# another process writes to it; the log rolls at 1 KB several times meanwhile
# and the follower carries on in the new file. Each line is numbered, so the
# count below shows that none was lost or repeated.
echo "== kvdiag tail -f Driver.Modbus (until 60 lines came) while the driver logs 6 x 10 numbered lines, rolling at 1 KB"
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\kvdiag' /f >/dev/null 2>&1 || true
kvdiag settings kvdiag DebugLogSize 1 >/dev/null
kvdiag settings kvdiag DebugLogHistoryFiles 3 >/dev/null
follow_out="$DEMO_ROOT/follow.txt"
"$KV_RUN" "$KV_DIAG" tail -f Driver.Modbus -n 0 --count 60 --for 60 > "$follow_out" 2>&1 &
follower=$!
sleep 1
for cycle in 1 2 3 4 5 6; do
  kvdiag log Driver.Modbus "Poll cycle $cycle: 128 registers read" -r 10 --numbered >/dev/null
  sleep 0.2
done
wait "$follower" || true
tr -d '\r' < "$follow_out" | sed 's/^/    /'
followed=$(tr -d '\r' < "$follow_out" | grep -o 'Poll cycle [0-9]: 128 registers read ([0-9]*/10)')
expected=$(for cycle in 1 2 3 4 5 6; do for n in $(seq 10); do
  echo "Poll cycle $cycle: 128 registers read ($n/10)"; done; done)
if [ "$followed" = "$expected" ]; then
  echo "    (all 60 lines followed, each once and in order)"
else
  echo "    (lines differ from the 60 written: $(echo "$followed" | grep -c .) followed," \
       "$(echo "$followed" | sort | uniq -d | grep -c .) repeated)"
fi
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\kvdiag' /f >/dev/null 2>&1 || true
echo
