# Run by cpack on the files of a Debian package before it packs them: documents are compressed there.

function(compress source target)
  execute_process(COMMAND gzip -9 -n -c "${source}" OUTPUT_FILE "${target}"
    COMMAND_ERROR_IS_FATAL ANY)
  file(CHMOD "${target}" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

set(share "${CPACK_TEMPORARY_INSTALL_DIRECTORY}${CPACK_PACKAGING_INSTALL_PREFIX}/share")
file(GLOB pages "${share}/man/man1/*.1")
foreach(page IN LISTS pages)
  compress("${page}" "${page}.gz")
  file(REMOVE "${page}")
endforeach()
compress("${CMAKE_CURRENT_LIST_DIR}/../CHANGELOG.md" "${share}/doc/vorn/changelog.gz")
