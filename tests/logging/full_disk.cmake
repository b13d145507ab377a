# Runs the full-disk test of test_logging on a 300 KB tmpfs that this script
# mounts and always unmounts again. Prints SKIPPED where mounting is not
# allowed (not root, no mount permission in a container).
execute_process(COMMAND mktemp -d /tmp/kvlog-full.XXXXXX OUTPUT_VARIABLE dir OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND mount -t tmpfs -o size=300k tmpfs ${dir} RESULT_VARIABLE mounted ERROR_VARIABLE why)
if(NOT mounted EQUAL 0)
  file(REMOVE_RECURSE ${dir})
  message("SKIPPED: cannot mount a small tmpfs here: ${why}")
  return()
endif()
string(REPLACE "/" "\\" windows_dir "Z:${dir}")
execute_process(COMMAND ${CMAKE_COMMAND} -E env KV_TEST_SMALL_DISK=${windows_dir}
                        ${EMULATOR} ${TEST} --gtest_filter=DebugLogFaults.AFullDisk*
                RESULT_VARIABLE result TIMEOUT 240)
execute_process(COMMAND umount ${dir} RESULT_VARIABLE unmounted)
if(NOT unmounted EQUAL 0)
  execute_process(COMMAND umount -l ${dir})  # a process of the test still holds it
endif()
file(REMOVE_RECURSE ${dir})
if(NOT result EQUAL 0)
  message(FATAL_ERROR "the full-disk test failed: ${result}")
endif()
