# The damaged-dump test writes a full-memory dump of a child host, as the
# crash tests do; several such dumps at once slow each other past the tests'
# timeouts, so the two entries never run together.
set_tests_properties(dump crash PROPERTIES RESOURCE_LOCK full_memory_dumps)
