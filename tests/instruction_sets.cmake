# cmake -D OBJECTS=A|B... -D NM=... -P instruction_sets.cmake
# Fails when an object file that is compiled for some processors only defines a function that the
# linker may take for all: one of vague linkage that has not the width of its vectors in its name.

string(REPLACE "|" ";" objects "${OBJECTS}")
list(LENGTH objects count)
if(count LESS 4)
  message(FATAL_ERROR "object files: ${objects}")
endif()
foreach(object IN LISTS objects)
  execute_process(COMMAND "${NM}" -C --defined-only "${object}"
    OUTPUT_VARIABLE listing COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^\n]* [uVW] [^\n]*" shared "${listing}")
  list(FILTER shared EXCLUDE REGEX "[a-z_]<[48]ul?l?>")
  if(shared)
    message(SEND_ERROR "${object} defines ${shared}")
  endif()
endforeach()
