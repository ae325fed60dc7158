# Runs PROGRAM and compares what it prints with the file EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE printed RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "the README's example ended with ${result}")
endif()
file(READ ${EXPECTED} expected)
if(NOT printed STREQUAL expected)
    message(FATAL_ERROR "the README's example printed\n${printed}instead of\n${expected}")
endif()
