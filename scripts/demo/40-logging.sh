# Logging: two components write to their own debug logs in the plant's log
# folder; a small size limit makes one of them roll into history files.
echo "== kvdiag log: lines from two components"
kvdiag log AlarmServer "Alarm server started, 42 tags loaded"
kvdiag log Driver.Modbus "Connected to PLC 10.0.0.17:502"
echo
echo "== Rolling: kvdiag's own log limited to 1 KB with 3 history files"
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\kvdiag' /f >/dev/null 2>&1 || true
kvdiag settings kvdiag DebugLogSize 1 >/dev/null
kvdiag settings kvdiag DebugLogHistoryFiles 3 >/dev/null
kvdiag log Driver.Modbus "Poll cycle complete: 128 registers read in 14 ms" -r 40
kvdiag tail Driver.Modbus -n 3
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\kvdiag' /f >/dev/null 2>&1 || true
echo
echo "== Files in the log folder"
ls -l "$DEMO_ROOT/Logs" | awk 'NR > 1 { printf "    %8s  %s\n", $5, $9 }'
echo
