# Runs PROGRAM in the directory SCRATCH, which is made anew and holds a copy of what is in FILES, and fails unless it ends with
# STATUS and prints what the file OUTPUT holds.

file(REMOVE_RECURSE "${SCRATCH}")
file(MAKE_DIRECTORY "${SCRATCH}")
if(EXISTS "${FILES}")
    file(COPY "${FILES}/" DESTINATION "${SCRATCH}")
endif()
set(ENV{TMPDIR} "${SCRATCH}")
set(ENV{LC_ALL} C)
execute_process(
    COMMAND "${PROGRAM}"
    WORKING_DIRECTORY "${SCRATCH}"
    INPUT_FILE /dev/null
    OUTPUT_VARIABLE printed
    ERROR_VARIABLE printed
    RESULT_VARIABLE status
)
file(REMOVE_RECURSE "${SCRATCH}")

file(READ "${OUTPUT}" expected)
if(NOT "${expected}" STREQUAL "")
    string(APPEND expected "\n")
endif()
if(NOT "${status}" STREQUAL "${STATUS}")
    message(FATAL_ERROR "It ended with '${status}', not with ${STATUS}. It printed:\n${printed}")
endif()
if(NOT "${printed}" STREQUAL "${expected}")
    message(FATAL_ERROR "It printed:\n${printed}\nIt should have printed:\n${expected}")
endif()
