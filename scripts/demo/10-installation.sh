# A sample installation: <build>/demo/Plant/Config/product.ini names the
# product folders, and the product's root key points at it.
echo "== Sample installation in $DEMO_ROOT_WIN"
rm -rf "$DEMO_ROOT"
mkdir -p "$DEMO_ROOT/Config"
ini="$DEMO_ROOT/Config/product.ini"
printf '[KVEDIT]\r\nCONFIG=%s\\Config\r\nLOGS=%s\\Logs\r\nBIN=%s\r\nDATA=%s\\Data\r\nUSER=%s\\User\r\nSTARTER=%s\\Starter\r\nLASTDATABASE=Plant1\r\nLASTDATABASEPATH=%s\\User\\Include\r\nRUN=%s\\Run\r\n[RuntimeManager]\r\nProfile=operator\r\n[Debug]\r\nMiniDumpType=1\r\n' \
  "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$("$KV_RUN" winepath -w "$KV_BUILD/bin" | tr -d '\r')" \
  "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" "$DEMO_ROOT_WIN" > "$ini"
"$KV_RUN" reg add 'HKLM\Software\Korvan\SCADA Installs\8.40' /v DefaultINIPath /t REG_SZ \
  /d "$DEMO_ROOT_WIN\\Config\\product.ini" /f /reg:32 >/dev/null
echo "product.ini:"
tr -d '\r' < "$ini" | sed 's/^/    /'
echo
