# The timestamp's UTC offset, with the zone given to the scenario host through
# TZ: west of UTC, east of UTC with half an hour, and UTC itself; the stamp's
# time must lie between two readings of the local time taken around it.
set(logging_zones EST5 IST-5:30 UTC0)
set(logging_offsets -05:00 +05:30 +00:00)
foreach(tz offset IN ZIP_LISTS logging_zones logging_offsets)
  string(REPLACE ":" "" name "${tz}")
  add_test(NAME logging_zone_${name} COMMAND scenario_host log_stamp
           WORKING_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
  string(REPLACE "+" "[+]" pattern "${offset}")
  set_tests_properties(logging_zone_${name} PROPERTIES ENVIRONMENT "TZ=${tz}"
    PASS_REGULAR_EXPRESSION "inlocal=1[|]stamp=[0-9]+-[0-9][0-9]-[0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9][.][0-9][0-9][0-9]\t${pattern}[|]length=30[|]own=1.*shared=[^|]*\t${pattern}[|]")
endforeach()

# A log folder on a file system that fills up: the entry mounts a small tmpfs
# (seen by Wine through Z:), runs the full-disk test there and unmounts.
add_test(NAME logging_full_disk
         COMMAND ${CMAKE_COMMAND} -DEMULATOR=${CMAKE_BINARY_DIR}/wine-run.sh -DTEST=$<TARGET_FILE:test_logging>
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/logging/full_disk.cmake
         WORKING_DIRECTORY ${CMAKE_RUNTIME_OUTPUT_DIRECTORY})
set_tests_properties(logging_full_disk PROPERTIES CROSSCOMPILING_EMULATOR "" TIMEOUT 300
                     SKIP_REGULAR_EXPRESSION "SKIPPED:")

# The line queue's own source is built into the logging tests against a stub file.
target_include_directories(test_logging PRIVATE ${PROJECT_SOURCE_DIR}/source)
