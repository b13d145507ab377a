# Crash diagnostics: a chained KvException caught and logged, a process that
# crashes with GenerateMiniDump as its filter, the dump read back, and the
# library's self-check on the sample installation.
echo "== kvdiag crashtest exception"
kvdiag crashtest exception
echo
echo "== kvdiag crashtest heavy (in a scratch copy of the installation)"
crashtest_out=$(kvdiag crashtest heavy)
echo "$crashtest_out"
dump=$(echo "$crashtest_out" | sed -n 's/^Dump: \(.*\), [0-9]* bytes.*/\1/p')
echo
echo "== kvdiag dumpinfo (up to the module list): the faulting stack, named through the PDBs"
kvdiag dumpinfo "$dump" | sed '/^Modules:/q' 
echo
echo "== kvdiag selfcheck"
kvdiag selfcheck --file selfcheck.txt
echo
