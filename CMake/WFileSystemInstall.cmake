# Installs the library, its public headers, its CMake package and its pkg-config file, in two components: what programs need to
# run, and what they need to be built. A third one, `tools`, is the command-line program's.

include(CMakePackageConfigHelpers)

set(include_dir "${CMAKE_INSTALL_INCLUDEDIR}/WFileSystem")
set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/WFileSystem")
set(pkgconfig_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS WFileSystem EXPORT WFileSystemTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    INCLUDES DESTINATION "${include_dir}"
)
foreach(header IN LISTS wfilesystem_public_headers)
    get_filename_component(folder "${header}" DIRECTORY)
    install(FILES "${header}" DESTINATION "${include_dir}/${folder}" COMPONENT development)
endforeach()

install(EXPORT WFileSystemTargets NAMESPACE WFileSystem:: DESTINATION "${package_dir}" COMPONENT development)
configure_package_config_file(CMake/WFileSystemConfig.cmake.in WFileSystemConfig.cmake INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(WFileSystemConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/WFileSystemConfig.cmake"
    "${PROJECT_BINARY_DIR}/WFileSystemConfigVersion.cmake"
    DESTINATION "${package_dir}" COMPONENT development
)

# The pkg-config file finds everything from its own place, so that an installed tree can be moved.
file(RELATIVE_PATH pc_prefix "${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir}" "${CMAKE_INSTALL_PREFIX}")
if(APPLE)
    set(pc_cxx_library -lc++)
else()
    set(pc_cxx_library -lstdc++)
endif()
configure_file(CMake/WFileSystem.pc.in WFileSystem.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/WFileSystem.pc" DESTINATION "${pkgconfig_dir}" COMPONENT development)
