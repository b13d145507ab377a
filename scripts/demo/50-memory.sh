# The debug memory manager: a guarded block overrun by one byte, as the heap
# check sees it; then a child that leaks a guarded block and leaves an overrun
# light-mode block, and the reports the library wrote when it unloaded (into
# a scratch copy of the installation, whose debug log memreport then reads,
# and symbolize shows with the allocation stacks named).
echo "== kvdiag heapcheck"
heapcheck_out=$(kvdiag heapcheck)
echo "$heapcheck_out"
scratch=$(echo "$heapcheck_out" | sed -n 's/^Scratch installation: \(.*\) (a copy of .*/\1/p')
echo
echo "== kvdiag memreport <scratch>\\Logs\\debug.log (its last memory report, by allocation site)"
kvdiag memreport "$scratch\\Logs\\debug.log"
echo
echo "== kvdiag symbolize <scratch>\\Logs\\debug.log (the guarded blocks' allocation stacks, named; excerpt)"
kvdiag symbolize "$scratch\\Logs\\debug.log" | grep -E 'Memory error|Memory Element - |Size: [0-9]|Allocation stack trace|Stack modules|=> '
echo
