# The debug memory manager: a guarded block overrun by one byte, as the heap
# check sees it.
echo "== kvdiag heapcheck"
kvdiag heapcheck
echo
