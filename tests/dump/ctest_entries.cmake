# The damaged-dump test writes a full-memory dump of a child host, as the
# crash tests do; several such dumps at once slow each other past the tests'
# timeouts, so the two entries never run together.
set_tests_properties(dump crash PROPERTIES RESOURCE_LOCK full_memory_dumps)

# The symbol store make install lays, against identities the LLVM tools read.
find_program(KV_READOBJ llvm-readobj REQUIRED)
find_program(KV_PDBUTIL llvm-pdbutil REQUIRED)
add_test(NAME symbol_store
         COMMAND ${CMAKE_COMMAND} -DBUILD=${CMAKE_BINARY_DIR} -DEMULATOR=${CMAKE_BINARY_DIR}/wine-run.sh
                 -DREADOBJ=${KV_READOBJ} -DPDBUTIL=${KV_PDBUTIL} -P ${CMAKE_CURRENT_LIST_DIR}/symbol_store.cmake)
set_tests_properties(symbol_store PROPERTIES CROSSCOMPILING_EMULATOR "" TIMEOUT 300)
# Its crash, hang and full-memory dumps take minutes on a loaded machine.
set_tests_properties(dump PROPERTIES TIMEOUT 1800)
