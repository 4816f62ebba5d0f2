# wfilesystem_enable_warnings(<target>...): the warnings of the project's own targets. They are never passed on to clients.
function(wfilesystem_enable_warnings)
    foreach(target IN LISTS ARGN)
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
        if(WFILESYSTEM_WARNINGS_AS_ERRORS)
            target_compile_options(${target} PRIVATE -Werror)
        endif()
    endforeach()
endfunction()
