# cmake -D LIBRARY=... -D HEADER=... -D NM=... -D OBJDUMP=... -P exported_symbols.cmake
# Fails unless the shared library exports the functions that its header declares, undecorated, and
# nothing else.

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
file(READ "${HEADER}" header)
string(REGEX MATCHALL "\n(int32_t|const char\\*) [A-Za-z_]+\\(" wanted "${header}")
list(TRANSFORM wanted REPLACE "\n(int32_t|const char\\*) ([A-Za-z_]+)\\(" "\\2")
list(SORT wanted)
if(NOT wanted OR NOT symbols STREQUAL wanted)
  message(FATAL_ERROR "${LIBRARY} exports: ${symbols}\nwanted: ${wanted}")
endif()
message(STATUS "${LIBRARY} exports ${symbols}")
