# Runs PROGRAM over a new FOLDER whose second file of three is broken: the other two are replayed, the
# fault is named with file, line and text, and the program says at its end that something failed.
set(header "Stock,Expiry,Strike,CE_LTP,CE_OI,CE_Volume,PE_LTP,PE_OI,PE_Volume,Stock_LTP,Stock_High,Stock_Low,Stock_%_Change,timestamp\n")
set(first "OAK,2026-03-26,100,5.25,10,1000,4,20,2000,101.5,102,99,1.5,2026-03-02 09:15:00\n")
string(REPLACE "1000" "1500" third "${first}")
string(REPLACE "2000" "20x0" broken "${first}")
file(REMOVE_RECURSE ${FOLDER})
file(WRITE ${FOLDER}/1.csv "${header}${first}")
file(WRITE ${FOLDER}/2.csv "${header}${broken}")
file(WRITE ${FOLDER}/3.csv "${header}${third}")

# Runs the program with arguments; checks the exit code, stderr and stdout by regular expressions.
function(expect code errors output)
    execute_process(COMMAND ${PROGRAM} ${ARGN}
        OUTPUT_VARIABLE printed ERROR_VARIABLE complained RESULT_VARIABLE result)
    if(NOT result EQUAL code)
        message(FATAL_ERROR "ended with ${result} instead of ${code}: ${complained}")
    endif()
    if(NOT complained MATCHES "${errors}")
        message(FATAL_ERROR "stderr does not match '${errors}':\n${complained}")
    endif()
    if(NOT printed MATCHES "${output}")
        message(FATAL_ERROR "stdout does not match '${output}':\n${printed}")
    endif()
endfunction()

# The third file updates one option, which trades the difference of its volumes.
expect(1 "2\\.csv:2: column 'PE_Volume' is not a whole number: '20x0'" "3  3\\.csv +0 +1 +0 +0 +1 +1 "
    --data ${FOLDER})
expect(0 "" "1  1\\.csv +2 +0 +0 " --data ${FOLDER} --batches 1)
expect(2 "--top takes a whole number above 0, not 'many'" "" --top many)
expect(2 "there is no folder" "" --data ${FOLDER}/none)
file(REMOVE_RECURSE ${FOLDER})
file(MAKE_DIRECTORY ${FOLDER})
expect(1 "there is no CSV file in" "" --data ${FOLDER})
