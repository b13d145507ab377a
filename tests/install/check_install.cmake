# Installs the build into a scratch prefix, then configures, builds and runs a
# host project that finds it with find_package(KvDebugHelp).
set(prefix ${BUILD}/install-check)
file(REMOVE_RECURSE ${prefix} ${BUILD}/install-consumer)
# Runs a command that must end with expected_rc; its output is left in out.
function(run expected_rc)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL expected_rc)
    message(FATAL_ERROR "${ARGN} ended with ${rc}, not ${expected_rc}:\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()
function(expect text pattern what)
  if(NOT text MATCHES "${pattern}")
    message(FATAL_ERROR "${what}: no match for '${pattern}' in:\n${text}")
  endif()
endfunction()

run(0 ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix})
foreach(f bin/KvDebugHelp.dll bin/KvDebugHelp.pdb bin/kvdiag.exe bin/kvdiag.pdb lib/libKvDebugHelp.dll.a lib/KvDebugHelp.lib
          include/KvDebugHelp.h lib/cmake/KvDebugHelp/KvDebugHelpConfig.cmake)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "install lacks ${f}")
  endif()
endforeach()
run(0 ${CMAKE_COMMAND} -S ${SOURCE}/tests/install/consumer -B ${BUILD}/install-consumer
      -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DCMAKE_PREFIX_PATH=${prefix} -DKvDebugHelp_DIR=${prefix}/lib/cmake/KvDebugHelp
      -DKVDH_INCLUDE=${prefix}/include -DKVDH_MSVC_LIB=${prefix}/lib/KvDebugHelp.lib)
run(0 ${CMAKE_COMMAND} --build ${BUILD}/install-consumer)
file(COPY ${prefix}/bin/KvDebugHelp.dll DESTINATION ${BUILD}/install-consumer)
foreach(exe consumer consumer_msvc_lib)
  run(0 ${EMULATOR} ${BUILD}/install-consumer/${exe}.exe)
  expect("${out}" "consumer: debug mode 0, value 42" "${exe}")
endforeach()

# A C++ host made exactly as the README says: its CMakeLists.txt holds
# find_package and target_link_libraries only, configured with the toolchain
# file the package installs and no other setting. It must start with nothing
# but KvDebugHelp.dll beside it, and name its own code in what it leaves.
set(host ${BUILD}/install-host)
file(REMOVE_RECURSE ${host})
run(0 ${CMAKE_COMMAND} -S ${SOURCE}/tests/install/host -B ${host}
      -DCMAKE_TOOLCHAIN_FILE=${prefix}/lib/cmake/KvDebugHelp/llvm-mingw-w64-x86_64.cmake)
run(0 ${CMAKE_COMMAND} --build ${host})
file(COPY ${prefix}/bin/KvDebugHelp.dll ${prefix}/bin/KvDebugHelp.pdb DESTINATION ${host})
string(REPLACE "/" "\\" host_win "Z:${host}")
file(WRITE ${host}/product.ini "[KVEDIT]\r\nLOGS=${host_win}\\Logs\r\n[Debug]\r\nMiniDumpType=3\r\n")

# Leaks: the memory report's site and the guarded block's stack, named by kvdiag symbolize.
run(0 ${EMULATOR} ${host}/installed_host.exe leak ${host_win}\\product.ini)
file(READ ${host}/Logs/debug.InstalledHost.log log)
# The site as the lookup found it through the PDB (the name pool's "*" form), not the caller's __FILE__.
expect("${log}" "Buffer, [^\n]*, 00064, [^\n]*, \\*[^,\n]*installed_host\\.cpp:[0-9]+" "memory report site")
if(log MATCHES "thread\\.c")
  message(FATAL_ERROR "an allocation site names Wine's thread.c:\n${log}")
endif()
run(0 ${EMULATOR} ${prefix}/bin/kvdiag.exe symbolize ${host_win}\\Logs\\debug.InstalledHost.log --symbols ${host_win})
expect("${out}" "=> 0x[0-9a-f]+  installed_host!main\\+0x[0-9a-f]+ \\([^)]*installed_host\\.cpp:[0-9]+\\)"
       "symbolized allocation stack")

# Without line information in the host the lookup names no site: never Wine's kernel32\thread.c.
file(WRITE ${host}/product.ini "[KVEDIT]\r\nLOGS=${host_win}\\NoLines\r\n")
run(0 ${EMULATOR} ${host}/host_without_lines.exe leak ${host_win}\\product.ini)
file(READ ${host}/NoLines/debug.InstalledHost.log log)
# The lookup finds nothing: the report keeps the caller's own __FILE__ and __LINE__.
expect("${log}" "Buffer, [^\n]*, 00064, [^\n]*, [^*,\n][^,\n]*installed_host\\.cpp:[0-9]+"
       "memory report of a host without lines")
if(log MATCHES "thread\\.c")
  message(FATAL_ERROR "an allocation site names Wine's thread.c:\n${log}")
endif()
file(WRITE ${host}/product.ini "[KVEDIT]\r\nLOGS=${host_win}\\Logs\r\n[Debug]\r\nMiniDumpType=3\r\n")

# A crash: its dump read back names the crashing function with file and line.
run(3 ${EMULATOR} ${host}/installed_host.exe crash ${host_win}\\product.ini)
file(GLOB dumps ${host}/Logs/*.dmp)
list(LENGTH dumps count)
if(NOT count EQUAL 1)
  message(FATAL_ERROR "expected one dump in ${host}/Logs, found: ${dumps}")
endif()
string(REPLACE "/" "\\" dump_win "Z:${dumps}")
run(0 ${EMULATOR} ${prefix}/bin/kvdiag.exe dumpinfo ${dump_win})
expect("${out}" "installed_host!CrashInPumpControl[^\n]*installed_host\\.cpp:[0-9]+" "dumpinfo's faulting frame")
file(REMOVE ${dumps})  # a full-memory dump: hundreds of MB
