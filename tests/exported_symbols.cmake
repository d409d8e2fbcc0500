# cmake -D LIBRARY=... -D NM=... -D OBJDUMP=... -P exported_symbols.cmake
# Fails unless the shared library exports the two entry points, undecorated, and nothing else.

if(LIBRARY MATCHES "\\.dll$")
  execute_process(COMMAND "${OBJDUMP}" -p "${LIBRARY}"
    OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
  # The table of names: "\t[   0] +base[   1]  0000 VornBundle" or, from older tools,
  # "\t[   0] VornBundle".
  string(REGEX REPLACE ".*\\[Ordinal/Name Pointer\\] Table[^\n]*\n" "" listing "${listing}")
  string(REGEX REPLACE "\n\n.*" "" listing "${listing}")
  string(REGEX MATCHALL "[^ \t\n]+\n" symbols "${listing}\n")
else()
  execute_process(COMMAND "${NM}" -D --defined-only "${LIBRARY}"
    OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^ \n]+\n" symbols "${listing}")
endif()

list(TRANSFORM symbols STRIP)
list(SORT symbols)
if(NOT symbols STREQUAL "VornBundle;VornScanBundle")
  message(FATAL_ERROR "${LIBRARY} exports: ${symbols}\nwanted: VornBundle;VornScanBundle")
endif()
message(STATUS "${LIBRARY} exports ${symbols}")
