# Following: kvdiag tail -f watches a driver's log for a few seconds while
# another process writes to it; the log rolls at 1 KB several times meanwhile
# and the follower carries on in the new file without losing a line.
echo "== kvdiag tail -f Driver.Modbus (for 4 s) while the driver logs 60 lines, rolling at 1 KB"
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\kvdiag' /f >/dev/null 2>&1 || true
kvdiag settings kvdiag DebugLogSize 1 >/dev/null
kvdiag settings kvdiag DebugLogHistoryFiles 3 >/dev/null
follow_out="$DEMO_ROOT/follow.txt"
"$KV_RUN" "$KV_DIAG" tail -f Driver.Modbus -n 1 --for 4 > "$follow_out" 2>&1 &
follower=$!
sleep 1
for batch in 1 2 3 4 5 6; do
  kvdiag log Driver.Modbus "Poll cycle $batch: 128 registers read" -r 10 >/dev/null
  sleep 0.2
done
wait "$follower" || true
tr -d '\r' < "$follow_out" | sed 's/^/    /'
echo "    ($(grep -c 'Poll cycle [0-9]' "$follow_out") of 60 lines followed)"
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\kvdiag' /f >/dev/null 2>&1 || true
echo
