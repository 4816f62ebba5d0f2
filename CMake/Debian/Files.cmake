# Run by cpack when the components are installed and not yet packed: adds what each Debian package must hold beside them.

set(for_all_to_read OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(debian_dir "${CPACK_WFILESYSTEM_SOURCE_DIR}/CMake/Debian")

function(compress file)
    execute_process(COMMAND gzip -9n "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER "${component}" COMPONENT)
    set(share_dir "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr/share")
    set(doc_dir "${share_dir}/doc/${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME}")

    # Not file(INSTALL): cpack has set DESTDIR.
    file(COPY "${debian_dir}/copyright" DESTINATION "${doc_dir}" FILE_PERMISSIONS ${for_all_to_read})
    execute_process(
        COMMAND "${debian_dir}/changelog" "${CPACK_WFILESYSTEM_SOURCE_DIR}/CHANGELOG.md"
            "${CPACK_PACKAGE_NAME}" "${CPACK_DEBIAN_PACKAGE_VERSION}" "${CPACK_PACKAGE_CONTACT}"
        OUTPUT_FILE "${doc_dir}/changelog"
        COMMAND_ERROR_IS_FATAL ANY
    )
    file(CHMOD "${doc_dir}/changelog" PERMISSIONS ${for_all_to_read})
    compress("${doc_dir}/changelog")

    file(GLOB manual_pages "${share_dir}/man/man*/*")
    foreach(page IN LISTS manual_pages)
        compress("${page}")
    endforeach()
endforeach()
