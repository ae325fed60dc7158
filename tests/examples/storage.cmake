# Saves the board of PROGRAM to a new FOLDER and loads it again, in the same run and in one of its
# own; then damages the file, which a load has to say and to leave alone. Last, Ctrl-C in the middle
# of a replay.
file(REMOVE_RECURSE ${FOLDER})

function(expect code text)
    execute_process(COMMAND ${PROGRAM} ${ARGN}
        OUTPUT_VARIABLE printed ERROR_VARIABLE complained RESULT_VARIABLE result)
    if(NOT result EQUAL code OR NOT "${printed}${complained}" MATCHES "${text}")
        message(FATAL_ERROR "${ARGN}: ended with ${result}, not ${code}, or without '${text}':\n"
            "${printed}\n${complained}")
    endif()
endfunction()

expect(0 "changed since: options.*row counts and checksums agree"
    --batches 2 --save ${FOLDER} --load ${FOLDER} --gzip)
expect(0 "changed since: options.*row counts and checksums agree" --load ${FOLDER})
file(GLOB files RELATIVE ${FOLDER} ${FOLDER}/*)
if(NOT files STREQUAL "options.gz;underlyings.gz")
    message(FATAL_ERROR "saved ${files}")
endif()
file(WRITE ${FOLDER}/options "no table")
file(SHA256 ${FOLDER}/underlyings.gz before)
expect(3 "/options': This is no table file: it begins with 0x6e6f2074" --load ${FOLDER})
file(READ ${FOLDER}/options content)
file(SHA256 ${FOLDER}/underlyings.gz after)
if(NOT content STREQUAL "no table" OR NOT before STREQUAL after)
    message(FATAL_ERROR "loading changed the files")
endif()
expect(2 "--gzip says how to --save" --gzip)

set(log ${FOLDER}/board.log)
file(REMOVE_RECURSE ${FOLDER})
# As late as it takes to be in the replay. In the foreground: else the program gets the signal twice,
# and the second one ends it.
foreach(seconds 1 2 4 8 16 32 64)
    execute_process(COMMAND timeout --foreground --preserve-status --signal=INT ${seconds}
            ${PROGRAM} --batches 1000000 --save ${FOLDER}
        OUTPUT_VARIABLE printed ERROR_VARIABLE printed RESULT_VARIABLE result)
    if(result EQUAL 130 AND printed MATCHES "saved .*options.*interrupted")
        break()
    elseif(seconds EQUAL 64)
        message(FATAL_ERROR "interrupted, it ended with ${result}:\n${printed}")
    endif()
endforeach()
expect(0 "row counts and checksums agree" --load ${FOLDER} --log ${log})
expect(3 "'[^\n]*none/underlyings': There is nothing to read" --load ${FOLDER}/none --log ${log})
file(READ ${log} logged)
if(NOT logged MATCHES "INFO [^\n]*complaint: '[^\n]*nothing to read" OR NOT EXISTS ${FOLDER}/board.1.log)
    message(FATAL_ERROR "the log holds ${logged}")
endif()
expect(2 "--log: '/nowhere/board.log' cannot be written" --log /nowhere/board.log)
