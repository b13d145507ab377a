# Installs the build into a scratch prefix, then configures, builds and runs a
# host project that finds it with find_package(KvDebugHelp).
set(prefix ${BUILD}/install-check)
file(REMOVE_RECURSE ${prefix} ${BUILD}/install-consumer)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD} --prefix ${prefix} OUTPUT_QUIET RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()
foreach(f bin/KvDebugHelp.dll bin/KvDebugHelp.pdb bin/kvdiag.exe bin/kvdiag.pdb lib/libKvDebugHelp.dll.a lib/KvDebugHelp.lib
          include/KvDebugHelp.h lib/cmake/KvDebugHelp/KvDebugHelpConfig.cmake)
  if(NOT EXISTS ${prefix}/${f})
    message(FATAL_ERROR "install lacks ${f}")
  endif()
endforeach()
execute_process(COMMAND ${CMAKE_COMMAND} -S ${SOURCE}/tests/install/consumer -B ${BUILD}/install-consumer
                        -DCMAKE_TOOLCHAIN_FILE=${TOOLCHAIN} -DCMAKE_PREFIX_PATH=${prefix}
                        -DKvDebugHelp_DIR=${prefix}/lib/cmake/KvDebugHelp -DKVDH_INCLUDE=${prefix}/include
                        -DKVDH_MSVC_LIB=${prefix}/lib/KvDebugHelp.lib
                RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer does not configure:\n${out}\n${err}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD}/install-consumer RESULT_VARIABLE rc
                OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "consumer does not build:\n${out}\n${err}")
endif()
file(COPY ${prefix}/bin/KvDebugHelp.dll DESTINATION ${BUILD}/install-consumer)
foreach(exe consumer consumer_msvc_lib)
  execute_process(COMMAND ${EMULATOR} ${BUILD}/install-consumer/${exe}.exe RESULT_VARIABLE rc OUTPUT_VARIABLE out)
  if(NOT rc EQUAL 0 OR NOT out MATCHES "consumer: debug mode 0, value 42")
    message(FATAL_ERROR "${exe} ran with ${rc}: ${out}")
  endif()
endforeach()
