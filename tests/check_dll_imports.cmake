# Checks the built DLL: it imports only Windows system DLLs (nothing Windows 7
# lacks), and it exports every name of its module-definition file under exactly
# that name. The programs shipped beside it (TOOLS) must load on Windows 7 too
# and carry no compiler runtime DLL.
execute_process(COMMAND ${OBJDUMP} -p ${DLL} OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "objdump failed on ${DLL}")
endif()

set(allowed KERNEL32.dll msvcrt.dll ADVAPI32.dll USER32.dll SHELL32.dll OLEAUT32.dll dbghelp.dll
            api-ms-win-crt-runtime-l1-1-0.dll ntdll.dll)
string(REGEX MATCHALL "DLL Name: [^\n]+" imports "${dump}")
foreach(line ${imports})
  string(REPLACE "DLL Name: " "" name "${line}")
  string(STRIP "${name}" name)
  list(FIND allowed ${name} index)
  if(index EQUAL -1)
    string(TOLOWER "${name}" lower)
    if(lower MATCHES "libstdc|libgcc|winpthread|pthread")
      message(FATAL_ERROR "KvDebugHelp.dll imports the compiler runtime ${name}")
    endif()
    message(FATAL_ERROR "KvDebugHelp.dll imports ${name}, which is not a Windows system DLL")
  endif()
  message(STATUS "imports ${name}")
endforeach()

# Plant machines still run Windows 7: functions that came with Windows 8 are
# found at run time, never imported (an import would stop the binary loading).
function(check_windows7 binary text)
  foreach(name RtlWaitOnAddress RtlWakeAddressAll RtlWakeAddressSingle WaitOnAddress WakeByAddressAll
               GetSystemTimePreciseAsFileTime GetCurrentThreadStackLimits GetOverlappedResultEx CreateFile2
               SetThreadDescription GetThreadDescription SetDefaultDllDirectories)
    if(text MATCHES "[ \t]${name}\n")
      message(FATAL_ERROR "${binary} imports ${name}, which Windows 7 does not have")
    endif()
  endforeach()
endfunction()
check_windows7(KvDebugHelp.dll "${dump}")

foreach(tool ${TOOLS})
  get_filename_component(tool_name ${tool} NAME)
  execute_process(COMMAND ${OBJDUMP} -p ${tool} OUTPUT_VARIABLE tool_dump RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "objdump failed on ${tool}")
  endif()
  string(TOLOWER "${tool_dump}" lower_dump)
  if(lower_dump MATCHES "dll name: [^\n]*(libstdc|libgcc|winpthread|pthread)")
    message(FATAL_ERROR "${tool_name} imports the compiler runtime")
  endif()
  check_windows7(${tool_name} "${tool_dump}")
endforeach()

file(STRINGS ${DEF} def_lines)
set(missing "")
foreach(line ${def_lines})
  string(STRIP "${line}" name)
  if(name STREQUAL "" OR name MATCHES "^(LIBRARY|EXPORTS|;)")
    continue()
  endif()
  string(REGEX MATCH "\\][ \t]+${name}\n" found "${dump}")
  if(NOT found)
    list(APPEND missing ${name})
  endif()
endforeach()
if(missing)
  message(FATAL_ERROR "not exported under its exact name: ${missing}")
endif()
