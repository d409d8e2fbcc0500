# Cross-compilation for 32-bit Linux with Debian's g++-i686-linux-gnu; programs run under
# qemu-i386-static (qemu-user-static).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-i386-static;-L;/usr/i686-linux-gnu")
set(CMAKE_FIND_ROOT_PATH /usr/i686-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Programs are linked statically; CMake would find the shared OpenMP.
execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=libgomp.a
  OUTPUT_VARIABLE static_openmp OUTPUT_STRIP_TRAILING_WHITESPACE)
set(OpenMP_gomp_LIBRARY "${static_openmp}" CACHE FILEPATH "OpenMP, static")
