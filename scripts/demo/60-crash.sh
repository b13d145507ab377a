# Crash diagnostics: a chained KvException caught and logged, a process that
# crashes with GenerateMiniDump as its filter, the dump read back, and the
# library's self-check on the sample installation.
echo "== kvdiag crashtest exception"
kvdiag crashtest exception
echo
echo "== kvdiag crashtest light"
kvdiag crashtest light
echo
echo "== kvdiag dumpinfo (first lines)"
kvdiag dumpinfo "$DEMO_ROOT_WIN\\Logs\\user.dmp" | head -12
echo
echo "== kvdiag selfcheck"
kvdiag selfcheck --file selfcheck.txt || echo "(exit code $?: failed checks)"
echo
