# Product configuration: values read from the product INI file (where it is
# and the folders it names follow once programs have logged, 47-paths.sh).
echo "== kvdiag ini KVEDIT LOGS, then the whole [RuntimeManager] section"
kvdiag ini KVEDIT LOGS
kvdiag ini RuntimeManager
echo
# A second installation without an INI file yet: init writes the defaults
# from where the INI file and the library lie.
echo "== kvdiag init --ini <Spare>\\Config\\product.ini"
mkdir -p "$DEMO_ROOT/../Spare/Config"
rm -f "$DEMO_ROOT/../Spare/Config/product.ini"
spare_win="$("$KV_RUN" winepath -w "$DEMO_ROOT/../Spare" | tr -d '\r')"
kvdiag init --ini "$spare_win\\Config\\product.ini"
kvdiag init --ini "$spare_win\\Config\\product.ini"
echo
