# Compiler settings that all targets share.

include(CheckCXXCompilerFlag)
include(CheckPIESupported)

check_pie_supported(LANGUAGES CXX)
check_cxx_compiler_flag(-fcf-protection=full VORN_HAS_CF_PROTECTION)
check_cxx_compiler_flag(-fstack-clash-protection VORN_HAS_STACK_CLASH_PROTECTION)

# vorn_harden(target): a fault in memory ends the process before it can be made use of. Checked buffers
# need optimisation; the sanitizers bring checks of their own.
function(vorn_harden target)
  if(NOT VORN_HARDEN OR VORN_SANITIZE OR VORN_SANITIZE_THREADS)
    return()
  endif()
  target_compile_options(${target} PRIVATE
    -fstack-protector-strong
    $<$<BOOL:${VORN_HAS_CF_PROTECTION}>:-fcf-protection=full>
    # Windows moves the guard page of a stack by calls of its own.
    $<$<AND:$<BOOL:${VORN_HAS_STACK_CLASH_PROTECTION}>,$<NOT:$<BOOL:${WIN32}>>>:-fstack-clash-protection>
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
    $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
  # With MinGW the checked functions are in a library that this option brings.
  target_link_options(${target} PRIVATE -fstack-protector-strong)
  if(WIN32)
    target_link_options(${target} PRIVATE LINKER:--dynamicbase,--nxcompat)
    if(CMAKE_SIZEOF_VOID_P EQUAL 8)
      target_link_options(${target} PRIVATE LINKER:--high-entropy-va)
    endif()
  else()
    target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now,-z,noexecstack)
  endif()
endfunction()

# vorn_compile_options(target): warnings, reproducible arithmetic and, when asked for, sanitizers.
function(vorn_compile_options target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wdouble-promotion -Wformat=2
    $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast -Wnon-virtual-dtor -Woverloaded-virtual>
    $<$<BOOL:${VORN_WERROR}>:-Werror>
    # The same input gives the same bytes: no contraction of a * b + c behind the source's back.
    -ffp-contract=off)

  # 32-bit x86 computes with 80-bit intermediates unless told otherwise. Hosts call with a stack
  # aligned to 4 bytes; SSE needs 16.
  if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|x86_64|AMD64)$")
    target_compile_options(${target} PRIVATE -msse2 -mfpmath=sse -mstackrealign)
  endif()

  # Files of any size, and inode numbers of 64 bits, in 32-bit programs too.
  if(NOT WIN32)
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  endif()

  if(VORN_SANITIZE)
    set(sanitizers -fsanitize=address,undefined -fno-sanitize-recover=all)
    # GCC takes the sanitizers' own code for uses of uninitialised values.
    target_compile_options(${target} PRIVATE
      ${sanitizers} -fno-omit-frame-pointer
      $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    target_compile_definitions(${target} PRIVATE _GLIBCXX_ASSERTIONS)
    target_link_options(${target} PRIVATE ${sanitizers})
  endif()

  if(VORN_SANITIZE_THREADS)
    target_compile_options(${target} PRIVATE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=thread)
  endif()

  vorn_harden(${target})

  # A Windows host gets one file: no DLL of the compiler's runtime beside it.
  if(WIN32)
    target_link_options(${target} PRIVATE -static)
  endif()
endfunction()

# vorn_version_resource(target name type): the version that Windows shows of the file `name` that the
# target builds; the type is VFT_DLL or VFT_APP. The resource is a target of its own because its
# compiler does not know the options of the others.
function(vorn_version_resource target vorn_file_name vorn_file_type)
  if(NOT WIN32)
    return()
  endif()
  set(resource "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc")
  configure_file("${PROJECT_SOURCE_DIR}/packaging/version.rc.in" "${resource}" @ONLY)
  add_library(${target}_version OBJECT "${resource}")
  target_sources(${target} PRIVATE $<TARGET_OBJECTS:${target}_version>)
endfunction()

# vorn_shared_library(name): a shared library of which exactly the functions leave that cmake/NAME.def
# and cmake/NAME.map list, whatever the standard library's templates declare. Its sources are those
# of the target `name`.
function(vorn_shared_library name)
  target_include_directories(${name} INTERFACE
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>" "$<INSTALL_INTERFACE:include>")
  vorn_compile_options(${name})
  set_target_properties(${name} PROPERTIES
    VERSION "${PROJECT_VERSION}"
    SOVERSION "${PROJECT_VERSION_MAJOR}")
  if(WIN32)
    target_sources(${name} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/${name}.def")
    set_target_properties(${name} PROPERTIES PREFIX "" DLL_NAME_WITH_SOVERSION OFF)
    vorn_version_resource(${name} ${name}.dll VFT_DLL)
  else()
    set(version_script "${PROJECT_SOURCE_DIR}/cmake/${name}.map")
    target_link_options(${name} PRIVATE "LINKER:--version-script=${version_script}" LINKER:-z,defs)
    set_target_properties(${name} PROPERTIES LINK_DEPENDS "${version_script}")
  endif()
endfunction()

# vorn_program_part(name source...): a part that programs and tests share, apart from the library.
function(vorn_program_part name)
  add_library(${name} STATIC EXCLUDE_FROM_ALL ${ARGN})
  target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE vorn_core)
  set_target_properties(${name} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  vorn_compile_options(${name})
endfunction()

# vorn_source_options(file option...): further compile options of one source file, for kernels that
# are compiled for an instruction set of their own. Elsewhere than on x86 the options are left out;
# such a file guards its body by the compiler's macros (__AVX2__ and so on).
function(vorn_source_options file)
  if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86|x86_64|AMD64)$")
    return()
  endif()
  set(options ${ARGN})
  # On 64-bit Windows GCC spills wide vectors to a stack that it aligns to 16 bytes only; the
  # assembler then has to take the moves that do not care.
  if(WIN32 AND CMAKE_SIZEOF_VOID_P EQUAL 8)
    list(APPEND options -Wa,-muse-unaligned-vector-move)
  endif()
  # GCC 12 aligns the frames that it keeps for reports of use after return to 32 bytes, and yet takes
  # arrays in them to be aligned as wide vectors are.
  if(VORN_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    list(APPEND options --param=asan-use-after-return=0)
  endif()
  set_property(SOURCE "${file}" APPEND PROPERTY COMPILE_OPTIONS ${options})
endfunction()
