# The debug memory manager: a guarded block overrun by one byte, as the heap
# check sees it; then a child that leaks a guarded block and leaves an overrun
# light-mode block, and the reports the library wrote when it unloaded.
echo "== kvdiag heapcheck"
kvdiag heapcheck
echo
echo "== kvdiag memreport (the last memory report of the live debug log, by allocation site)"
kvdiag memreport
echo
