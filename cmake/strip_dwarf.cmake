# The static runtime archives (libstdc++, libgcc, winpthread, the mingw-w64 CRT)
# carry DWARF, and lld keeps it in the image when it writes a PDB. Every link
# therefore ends with a second command that removes those sections, so every
# symbol lookup goes through the PDB, as it must on Windows. The CodeView
# record that names the PDB lives in its own section (.buildid) and stays.
foreach(lang C CXX)
  list(APPEND CMAKE_${lang}_LINK_EXECUTABLE "${CMAKE_OBJCOPY} --strip-debug <TARGET>")
  list(APPEND CMAKE_${lang}_CREATE_SHARED_LIBRARY "${CMAKE_OBJCOPY} --strip-debug <TARGET>")
endforeach()
