# A sample installation: <build>/demo/Plant/Config/product.ini names the
# product folders, and the product's root key points at it. Its Bin folder
# holds what a plant machine has: the library and kvdiag with their PDBs (and
# the stand-in mail client the mail step talks to); the demo's host programs
# run from the build.
echo "== Sample installation in $DEMO_ROOT_WIN"
rm -rf "$DEMO_ROOT"
mkdir -p "$DEMO_ROOT/Config" "$DEMO_ROOT/Bin"
for file in KvDebugHelp.dll KvDebugHelp.pdb kvdiag.exe kvdiag.pdb mapi32.dll; do
  cp "$KV_BUILD/bin/$file" "$DEMO_ROOT/Bin/"
done
KV_DIAG="$DEMO_ROOT/Bin/kvdiag.exe"
kvdiag() { "$KV_RUN" "$KV_DIAG" "$@" | tr -d '\r'; }
ini="$DEMO_ROOT/Config/product.ini"
printf '[KVEDIT]\r\nCONFIG=%s\\Config\r\nLOGS=%s\\Logs\r\nBIN=%s\r\nDATA=%s\\Data\r\nUSER=%s\\User\r\nSTARTER=%s\\Starter\r\nLASTDATABASE=Plant1\r\nLASTDATABASEPATH=%s\\User\\Include\r\nRUN=%s\\Run\r\n[RuntimeManager]\r\nProfile=operator\r\n[Debug]\r\nMiniDumpType=1\r\n' \
  "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN\\Bin" \
  "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" > "$ini"
"$KV_RUN" reg add 'HKLM\Software\Korvan\SCADA Installs\8.40' /v DefaultINIPath /t REG_SZ \
  /d "$DEMO_ROOT_WIN\\Config\\product.ini" /f /reg:32 >/dev/null
echo "product.ini:"
tr -d '\r' < "$ini" | sed 's/^/    /'
echo
