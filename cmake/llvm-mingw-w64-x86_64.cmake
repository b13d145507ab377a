# Cross toolchain: clang and lld for 64-bit Windows, against the mingw-w64
# headers and import libraries and GCC's POSIX-thread libstdc++ and winpthread,
# all linked statically. Every binary gets CodeView debug information in a PDB
# beside it, the format Windows' DbgHelp, WinDbg and Visual Studio read.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(TOOLCHAIN_PREFIX x86_64-w64-mingw32)
set(KV_SYSROOT /usr/${TOOLCHAIN_PREFIX})

set(CMAKE_C_COMPILER   clang)
set(CMAKE_CXX_COMPILER clang++)
set(CMAKE_C_COMPILER_TARGET   ${TOOLCHAIN_PREFIX})
set(CMAKE_CXX_COMPILER_TARGET ${TOOLCHAIN_PREFIX})
set(CMAKE_RC_COMPILER  ${TOOLCHAIN_PREFIX}-windres)
set(CMAKE_DLLTOOL      ${TOOLCHAIN_PREFIX}-dlltool)
set(CMAKE_OBJDUMP      ${TOOLCHAIN_PREFIX}-objdump)
# llvm-objcopy, not GNU objcopy: GNU's marks a stripped image "debug info
# stripped" (IMAGE_FILE_DEBUG_STRIPPED), and DbgHelp then looks for a .DBG
# file instead of the PDB.
set(CMAKE_OBJCOPY      llvm-objcopy)

# GCC's library folder (…/12-posix): clang does not find it by itself, because
# the folder name is not a bare version number.
execute_process(COMMAND ${TOOLCHAIN_PREFIX}-g++-posix -print-libgcc-file-name
                OUTPUT_VARIABLE kv_libgcc OUTPUT_STRIP_TRAILING_WHITESPACE)
get_filename_component(KV_GCC_LIBDIR "${kv_libgcc}" DIRECTORY)
if(NOT EXISTS "${KV_GCC_LIBDIR}/libstdc++.a")
  message(FATAL_ERROR "No POSIX-thread libstdc++ for ${TOOLCHAIN_PREFIX} (g++-mingw-w64-x86-64-posix)")
endif()

# The sysroot keeps the host's /usr/include out of every search path.
set(CMAKE_C_FLAGS_INIT "--sysroot=${KV_SYSROOT}")
set(CMAKE_CXX_FLAGS_INIT "--sysroot=${KV_SYSROOT} -nostdinc++")
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${KV_GCC_LIBDIR}/include/c++ ${KV_GCC_LIBDIR}/include/c++/${TOOLCHAIN_PREFIX}
    ${KV_GCC_LIBDIR}/include/c++/backward)
# lld writes <binary>.pdb beside each binary; the image names it by file name
# only, so no build path leaks and DbgHelp finds it beside the module anywhere.
# winpthread is what GCC's driver adds for the POSIX thread model.
set(kv_link_flags "-Wno-unused-command-line-argument -fuse-ld=lld -L${KV_GCC_LIBDIR} -Wl,--pdb= -Wl,--Xlink=-pdbaltpath:%_PDB% -lpthread")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${kv_link_flags}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${kv_link_flags}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${kv_link_flags}")

set(CMAKE_FIND_ROOT_PATH ${KV_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Installed with the package (<prefix>/lib/cmake/KvDebugHelp), this file adds
# its install tree to the find roots: packages are searched below the roots
# only, and find_package(KvDebugHelp) then needs no path at all.
if(EXISTS ${CMAKE_CURRENT_LIST_DIR}/KvDebugHelpConfig.cmake)
  get_filename_component(kv_package_prefix ${CMAKE_CURRENT_LIST_DIR}/../../.. ABSOLUTE)
  list(APPEND CMAKE_FIND_ROOT_PATH ${kv_package_prefix})
endif()
