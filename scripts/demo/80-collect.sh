# Collecting for support: everything of the sample installation in one
# cabinet file, listed afterwards with cabextract (Explorer and expand open
# it on Windows).
echo "== kvdiag collect <plant>\\support.cab --since 24"
rm -f "$DEMO_ROOT/support.cab"
# Its progress lines (stderr) in order with what it prints.
"$KV_RUN" "$KV_DIAG" collect "$DEMO_ROOT_WIN\\support.cab" --since 24 2>&1 | tr -d '\r'
echo
echo "== cabextract -l support.cab"
cabextract -l "$DEMO_ROOT/support.cab" | sed 's/^/    /'
echo
