# wfilesystem_harden(<target>...): what makes an error in the code of the library or of a program harder to exploit. Tests are not
# hardened: they are not optimised, and _FORTIFY_SOURCE needs that.

include(CheckPIESupported)

if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND CMAKE_CXX_COMPILER_ID MATCHES "^(GNU|Clang)$")
    set(wfilesystem_can_be_hardened ON)
    # Without this call CMake compiles position-independent programs, but does not link them as such.
    check_pie_supported(LANGUAGES CXX)
else()
    set(wfilesystem_can_be_hardened OFF)
endif()

function(wfilesystem_harden)
    if(NOT WFILESYSTEM_HARDENED OR NOT wfilesystem_can_be_hardened)
        return()
    endif()
    foreach(target IN LISTS ARGN)
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
        target_compile_options(${target} PRIVATE
            -fstack-protector-strong
            "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>"
        )
        get_target_property(type ${target} TYPE)
        if(type MATCHES "^(SHARED_LIBRARY|EXECUTABLE)$")
            target_link_options(${target} PRIVATE LINKER:-z,relro,-z,now,-z,noexecstack)
        endif()
    endforeach()
endfunction()
