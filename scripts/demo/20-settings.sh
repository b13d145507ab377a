# Per-executable settings: what a process named AlarmServer gets at attach,
# then one setting changed the way an engineer would on site.
echo "== kvdiag settings AlarmServer"
"$KV_RUN" reg delete 'HKCU\Software\Korvan\KvDebugHelp\AlarmServer' /f >/dev/null 2>&1 || true
kvdiag settings AlarmServer DebugLogSize 64
echo "== kvdiag settings AlarmServer HeapCheckInterval 2 (outside its range: refused, nothing stored)"
"$KV_RUN" "$KV_DIAG" settings AlarmServer HeapCheckInterval 2 2>&1 | tr -d '\r' || true
echo
