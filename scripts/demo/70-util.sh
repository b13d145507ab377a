# Registered tools and the crash mail. A helper tool is registered below the
# product's root key the way an installer does; kvdiag lists it with its macros
# expanded from product.ini and starts it by name. The demo tool writes down
# how it was started.
tool_key='HKLM\Software\Korvan\SCADA Installs\8.40\TrendViewer'
bin_win="$("$KV_RUN" winepath -w "$KV_BUILD/bin" | tr -d '\r')"
started="$DEMO_ROOT/trendviewer-started.txt"
rm -f "$started"
"$KV_RUN" reg add "$tool_key" /ve /t REG_SZ /f /reg:32 >/dev/null \
  /d "\"$bin_win\\util_tool_recorder.exe\" $DEMO_ROOT_WIN\\trendviewer-started.txt -p %p% -d %d% -b %b% 50^% done"
"$KV_RUN" reg add "$tool_key" /v WorkingDirectory /t REG_SZ /d "$DEMO_ROOT_WIN" /f /reg:32 >/dev/null
echo "== kvdiag tools"
kvdiag tools
echo
echo "== kvdiag run TrendViewer"
kvdiag run TrendViewer
for _ in $(seq 50); do grep -q '^cwd=' "$started" 2>/dev/null && break; sleep 0.2; done
echo "The tool saw:"
tr -d '\r' < "$started" | sed 's/^/    /'
"$KV_RUN" reg delete "$tool_key" /f /reg:32 >/dev/null
echo
# The crash mail goes to the user's MAPI mail client. Here a stand-in client
# (the MAPI32.DLL the tests use, beside kvdiag.exe) prints what it receives.
echo "== kvdiag mail ops@plant.example <Logs>\\debug.AlarmServer.log"
mapi_key='HKCU\Software\Wine\AppDefaults\kvdiag.exe\DllOverrides'
"$KV_RUN" reg add "$mapi_key" /v mapi32 /t REG_SZ /d native /f >/dev/null
kvdiag mail ops@plant.example "$DEMO_ROOT_WIN\\Logs\\debug.AlarmServer.log" "AlarmServer stopped at 03:12; log attached."
echo "== kvdiag mail ops@plant.example <Logs>\\debug.log (a file that does not exist: refused)"
"$KV_RUN" "$KV_DIAG" mail ops@plant.example "$DEMO_ROOT_WIN\\Logs\\debug.log" 2>&1 | tr -d '\r' || true
"$KV_RUN" reg delete "${mapi_key%\\DllOverrides}" /f >/dev/null
echo
