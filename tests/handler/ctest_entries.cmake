# The handler tests speak the handler's pipe protocol themselves, with the
# library's own wire format and transfer.
target_include_directories(test_handler PRIVATE ${PROJECT_SOURCE_DIR}/source)
target_include_directories(scenario_host PRIVATE ${PROJECT_SOURCE_DIR}/source)
