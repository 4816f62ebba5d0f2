# Fails unless each test that the page PAGE names, as `Suite.Test`, is one of those that CTEST knows in the build directory BUILD.

execute_process(
    COMMAND "${CTEST}" -N
    WORKING_DIRECTORY "${BUILD}"
    OUTPUT_VARIABLE tests
    COMMAND_ERROR_IS_FATAL ANY
)
file(READ "${PAGE}" text)
string(REGEX MATCHALL "`[A-Z][A-Za-z0-9]*\\.[A-Z][A-Za-z0-9]*`" names "${text}")
list(REMOVE_DUPLICATES names)
list(LENGTH names count)
if(count EQUAL 0)
    message(FATAL_ERROR "${PAGE} names no test.")
endif()

set(missing "")
foreach(name IN LISTS names)
    # A typed test has "<1>" behind its name, one with a parameter its group before and "/1" behind it.
    string(REGEX REPLACE "`(.*)\\.(.*)`" "[ /]\\1\\\\.\\2(<[^\n]*>|/[^\n]*)?\n" pattern "${name}")
    if(NOT "${tests}" MATCHES "${pattern}")
        list(APPEND missing "${name}")
    endif()
endforeach()
if(missing)
    list(JOIN missing "\n  " missing)
    message(FATAL_ERROR "${PAGE} names tests that are not there:\n  ${missing}")
endif()
message("${count} tests are named, and all are there.")
