# Makes Debian packages of what is installed, by `cpack`: each component is a package. Scripts/package builds them with the
# preset `packages`. Included last, when all that is installed is known.

set(WFILESYSTEM_PACKAGE_CONTACT "WFileSystem maintainers <wfilesystem@example.org>" CACHE STRING
    "Who answers for the Debian packages: a name and an address")

set(runtime_package "libwfilesystem${PROJECT_VERSION_MAJOR}")
set(development_package libwfilesystem-dev)
set(tools_package wfs-tools)

set(CPACK_COMPONENTS_ALL runtime development)
if(WFILESYSTEM_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
get_cmake_property(installed_components COMPONENTS)
list(REMOVE_ITEM installed_components ${CPACK_COMPONENTS_ALL})
if(installed_components)
    message(FATAL_ERROR "Something is installed that no package would hold; give it one of the components "
        "${CPACK_COMPONENTS_ALL}. It is in: ${installed_components}")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME wfilesystem)
# Otherwise it would come before the description of each package.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "${WFILESYSTEM_PACKAGE_CONTACT}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# Copyright, changelog and compressed manual pages belong in the packages only.
set(CPACK_PRE_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/CMake/Debian/Files.cmake")
set(CPACK_WFILESYSTEM_SOURCE_DIR "${PROJECT_SOURCE_DIR}")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE wfilesystem)
set(CPACK_DEBIAN_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# The program's package is looked at before the library's is installed: its library is the one that was just built.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")

set(what_it_is "\
WFileSystem is a C++17 library for files that several threads and several
processes use at the same time: it opens, reads, writes, copies and locks
them, and says exactly what went wrong when it could not.
.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${runtime_package}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "files shared by threads and processes - C++ library
${what_it_is}
This package holds the shared library.")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# CPack makes scripts that call ldconfig, unless it is given some. The trigger calls it, and once for all packages; so CPack is
# given two that don't exist: it warns and packs none.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/CMake/Debian/triggers;/nonexistent/postinst;/nonexistent/postrm")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${development_package}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "files shared by threads and processes - development files
${what_it_is}
This package holds the headers, the CMake package and the pkg-config file.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME "${tools_package}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "files shared by processes - command-line program
The program wfs reads, writes and locks files from the shell under the same
record locks as programs that use the library WFileSystem, and serves
requests over named pipes.")

include(CPack)
