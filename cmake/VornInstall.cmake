# What `cmake --install` puts where, and the packages that `cpack` makes of it.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Header, library and, on Windows, the import library and the list of exports, from which any other
# linker can make one of its own.
install(TARGETS vorn vorn_session EXPORT VornTargets
  RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
install(FILES "${PROJECT_SOURCE_DIR}/include/vorn/vorn.h"
  "${PROJECT_SOURCE_DIR}/include/vorn/session.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/vorn")
if(WIN32)
  install(FILES "${PROJECT_SOURCE_DIR}/cmake/vorn.def"
    "${PROJECT_SOURCE_DIR}/cmake/vorn_session.def" DESTINATION "${CMAKE_INSTALL_LIBDIR}")
endif()
if(TARGET vorn_command)
  install(TARGETS vorn_command RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()

# find_package(Vorn) gives the targets Vorn::vorn and Vorn::vorn_session.
set(vorn_package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Vorn")
install(EXPORT VornTargets NAMESPACE Vorn:: DESTINATION "${vorn_package_dir}")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/VornConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/VornConfig.cmake" INSTALL_DESTINATION "${vorn_package_dir}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/VornConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/VornConfig.cmake"
  "${PROJECT_BINARY_DIR}/VornConfigVersion.cmake" DESTINATION "${vorn_package_dir}")

# The pkg-config file finds the rest from where it lies, so an installed tree can be moved.
cmake_path(SET vorn_pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}/${vorn_pkgconfig_dir}"
  OUTPUT_VARIABLE vorn_prefix_from_pkgconfig)
foreach(library IN ITEMS vorn vorn_session)
  configure_file("${PROJECT_SOURCE_DIR}/packaging/${library}.pc.in"
    "${PROJECT_BINARY_DIR}/${library}.pc" @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${library}.pc" DESTINATION "${vorn_pkgconfig_dir}")
endforeach()

if(TARGET vorn_command AND NOT CMAKE_CROSSCOMPILING)
  install(FILES "${PROJECT_BINARY_DIR}/vorn.1" DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  install(FILES "${PROJECT_SOURCE_DIR}/packaging/vorn.bash-completion"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" RENAME vorn)
endif()

# Documents keep the layout of the repository, so that their links hold; the header alone lies
# elsewhere, seen from the documents that link to it.
install(FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}")
install(FILES "${PROJECT_SOURCE_DIR}/bench/README.md" DESTINATION "${CMAKE_INSTALL_DOCDIR}/bench")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" "${PROJECT_SOURCE_DIR}/examples"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" PATTERN "__pycache__" EXCLUDE)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_INCLUDEDIR
  BASE_DIRECTORY "${CMAKE_INSTALL_FULL_DOCDIR}" OUTPUT_VARIABLE vorn_include_from_doc)
install(CODE "
  set(vorn_doc_dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_DOCDIR}\")
  set(vorn_include_from_doc \"${vorn_include_from_doc}\")")
install(CODE [[
  foreach(page IN ITEMS README.md docs/hosting.md docs/session.md)
    file(READ "${vorn_doc_dir}/${page}" text)
    string(REPLACE "](include/" "](${vorn_include_from_doc}/" text "${text}")
    string(REPLACE "](../include/" "](../${vorn_include_from_doc}/" text "${text}")
    file(WRITE "${vorn_doc_dir}/${page}" "${text}")
  endforeach()]])

set(CPACK_PACKAGE_NAME vorn)
# Whoever gives packages to others sets a name and an address that answers.
set(VORN_PACKAGE_MAINTAINER "The Vorn developers <vorn@localhost>" CACHE STRING
  "Maintainer named in packages: NAME <MAIL ADDRESS>")
set(CPACK_PACKAGE_CONTACT "${VORN_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
"Vorn computes from image measurements and a few control points where cameras
were, where the points are, and how the cameras really image. It adjusts
aerial blocks, close-range projects and line-camera strips together with
additional parameters of the cameras and drifts of position and attitude.
Input, report and results are plain text.
.
This package holds the command, the library with its header, documents and
examples.")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
if(WIN32)
  set(CPACK_GENERATOR ZIP)
  if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    set(CPACK_SYSTEM_NAME win32)
  else()
    set(CPACK_SYSTEM_NAME win64)
  endif()
else()
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION science)
  set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/packaging/debian.cmake")
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  # Scripts for the linker's cache, which a package with a library has to refresh.
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/triggers")
endif()
include(CPack)
