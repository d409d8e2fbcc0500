# The template of the report page, bundled from web/ by Node.js. Sets VORN_REPORT_PAGE_SOURCE to the
# C++ source that holds it, or to nothing where Node.js, npm or the packages that web/ asks for are
# missing: the command is built without the page then and says so.

option(VORN_WITH_REPORT_PAGE "Bundle the report page where Node.js is found" ON)
set(VORN_REPORT_PAGE_SOURCE "")
if(NOT VORN_WITH_REPORT_PAGE)
  return()
endif()

find_program(VORN_NODE node NO_CMAKE_FIND_ROOT_PATH)
find_program(VORN_NPM npm NO_CMAKE_FIND_ROOT_PATH)
if(NOT VORN_NODE OR NOT VORN_NPM)
  message(STATUS "Node.js was not found: the command is built without the report page")
  return()
endif()

set(web "${PROJECT_SOURCE_DIR}/web")
set(page_dir "${PROJECT_BINARY_DIR}/web")
file(GLOB_RECURSE page_inputs CONFIGURE_DEPENDS "${web}/src/*")
file(MAKE_DIRECTORY "${page_dir}")

# Packages are fetched once, and again when the list of them changes.
file(SHA256 "${web}/package-lock.json" lock)
set(fetched "${page_dir}/packages-${lock}")
if(NOT EXISTS "${fetched}")
  file(COPY "${web}/package.json" "${web}/package-lock.json" DESTINATION "${page_dir}")
  execute_process(
    COMMAND "${VORN_NPM}" ci --ignore-scripts --no-audit --no-fund
    WORKING_DIRECTORY "${page_dir}"
    TIMEOUT 180
    RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
  if(failed)
    message(STATUS "npm could not fetch the packages of web/: the command is built without the "
      "report page")
    return()
  endif()
  file(TOUCH "${fetched}")
endif()

set(VORN_REPORT_PAGE_SOURCE "${page_dir}/page_template.cpp")
add_custom_command(
  OUTPUT "${VORN_REPORT_PAGE_SOURCE}"
  COMMAND "${CMAKE_COMMAND}" -E copy_directory "${web}/src" "${page_dir}/src"
  COMMAND "${CMAKE_COMMAND}" -E copy "${web}/build.mjs" "${web}/embed.mjs" "${page_dir}"
  COMMAND "${VORN_NODE}" build.mjs "${page_dir}/report.html"
  COMMAND "${VORN_NODE}" embed.mjs "${page_dir}/report.html" "${VORN_REPORT_PAGE_SOURCE}"
  DEPENDS ${page_inputs} "${web}/build.mjs" "${web}/embed.mjs" "${fetched}"
  WORKING_DIRECTORY "${page_dir}"
  COMMENT "Bundling the report page"
  VERBATIM)
