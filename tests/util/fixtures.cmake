# Programs the utility tests start, built into bin/ beside the test programs:
# a tool that records how it was started and a stand-in MAPI32.DLL.
add_executable(util_tool_recorder ${CMAKE_CURRENT_LIST_DIR}/fixtures/tool_recorder.cpp)
add_library(kv_mapi32_recorder SHARED ${CMAKE_CURRENT_LIST_DIR}/fixtures/mapi32_recorder.cpp
            ${CMAKE_CURRENT_LIST_DIR}/fixtures/mapi32_recorder.def)
set_target_properties(kv_mapi32_recorder PROPERTIES OUTPUT_NAME mapi32 PREFIX "" IMPORT_PREFIX "libkvtest_")
target_compile_definitions(kv_mapi32_recorder PRIVATE WIN32_LEAN_AND_MEAN)
if(TARGET test_util)
  add_dependencies(test_util util_tool_recorder kv_mapi32_recorder)
  # The command split is checked directly against the regular expression it replaces.
  target_sources(test_util PRIVATE ${PROJECT_SOURCE_DIR}/source/util/command_split.cpp)
  target_include_directories(test_util PRIVATE ${PROJECT_SOURCE_DIR}/source)
  # kvdiag collect's cabinet is read back with the cabinet API (FDI).
  target_link_libraries(test_util PRIVATE cabinet)
endif()
