# RapidJSON, headers only, writes JSON: the target vorn_rapidjson is there when it was found. A
# cross-build takes it from the build machine, through a link: naming /usr/include itself would mix
# the build machine's C library into the target's.
include_guard(GLOBAL)

if(CMAKE_CROSSCOMPILING)
  find_path(VORN_RAPIDJSON_ROOT rapidjson/prettywriter.h
    PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
else()
  find_path(VORN_RAPIDJSON_ROOT rapidjson/prettywriter.h)
endif()
if(NOT VORN_RAPIDJSON_ROOT)
  return()
endif()

set(rapidjson_include "${VORN_RAPIDJSON_ROOT}")
if(CMAKE_CROSSCOMPILING)
  set(rapidjson_include "${PROJECT_BINARY_DIR}/rapidjson")
  file(MAKE_DIRECTORY "${rapidjson_include}")
  file(CREATE_LINK "${VORN_RAPIDJSON_ROOT}/rapidjson" "${rapidjson_include}/rapidjson" SYMBOLIC)
endif()
add_library(vorn_rapidjson INTERFACE)
target_include_directories(vorn_rapidjson SYSTEM INTERFACE "${rapidjson_include}")
target_compile_definitions(vorn_rapidjson INTERFACE VORN_HAS_JSON RAPIDJSON_HAS_STDSTRING=0)
