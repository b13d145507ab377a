# Crash diagnostics: a chained KvException caught and logged, a process that
# crashes with GenerateMiniDump as its filter, the dump read back, and the
# library's self-check on the sample installation.
echo "== kvdiag crashtest exception"
kvdiag crashtest exception
echo
echo "== kvdiag crashtest heavy"
kvdiag crashtest heavy
echo
echo "== kvdiag dumpinfo (up to the module list): the faulting stack, named through the PDBs"
kvdiag dumpinfo "$DEMO_ROOT_WIN\\Logs\\user.dmp" | sed '/^Modules:/q' 
echo
echo "== kvdiag selfcheck"
kvdiag selfcheck --file selfcheck.txt || echo "(exit code $?: failed checks)"
echo
