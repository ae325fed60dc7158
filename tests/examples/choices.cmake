# Stores choices below a new FOLDER, for the user and for a workplace, and looks which of them PROGRAM
# follows, with and without options over them.
file(REMOVE_RECURSE ${FOLDER} $ENV{XDG_CONFIG_HOME})

function(expect code text)
    execute_process(COMMAND ${PROGRAM} --batches 1 ${ARGN}
        OUTPUT_VARIABLE printed ERROR_VARIABLE complained RESULT_VARIABLE result)
    if(NOT result EQUAL code OR NOT "${printed}${complained}" MATCHES "${text}")
        message(FATAL_ERROR "${ARGN}: ended with ${result}, not ${code}, or without '${text}':\n"
            "${printed}\n${complained}")
    endif()
endfunction()

expect(0 "Top 10 options.*stock +expiry.*The model.*Memory")
if(EXISTS $ENV{XDG_CONFIG_HOME})
    message(FATAL_ERROR "a run without --set wrote settings")
endif()
set(own --settings ${FOLDER} --workplace bonds)
expect(2 "there is no workplace 'bonds'" ${own})
expect(0 "Top 4 options" --settings ${FOLDER} --set top=4)
expect(0 "Memory.*Top 4 options[^\n]*\n +strike +stock +gamma\n"
    ${own} --set columns=strike,stock,gamma --set tables=memory,top --set gzip=true)
expect(0 "Top 2 options[^\n]*\n +strike" ${own} --top 2 --save ${FOLDER}/saved)
expect(0 "Top 4 options[^\n]*\n +stock.*Memory" --settings ${FOLDER} --save ${FOLDER}/saved/plain)
expect(2 "setting 'columns': 'price' is not accepted" ${own} --set columns=price)
expect(0 "Top 4 options[^\n]*\n +strike" ${own})
file(GLOB files RELATIVE ${FOLDER}/saved ${FOLDER}/saved/*.gz ${FOLDER}/saved/plain/*)
if(NOT files STREQUAL "options.gz;plain/options;plain/underlyings;underlyings.gz")
    message(FATAL_ERROR "saved ${files}")
endif()
