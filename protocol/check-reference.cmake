# cmake -DEXAMPLES=<kzexamples> -DKZGEN=<generator command> -DWORK=<dir> -P check-reference.cmake
#
# Makes the protocol reference page as the docs target does and checks it: one
# section per method code of the table, each with its flags, fields and the
# bytes of an example.
file(MAKE_DIRECTORY "${WORK}")
execute_process(COMMAND "${EXAMPLES}" "${WORK}/examples.json" RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "kzexamples failed: ${rc}")
endif()
execute_process(COMMAND ${KZGEN} reference "${WORK}/examples.json" "${WORK}/reference.md"
                RESULT_VARIABLE rc)
if(rc)
  message(FATAL_ERROR "the reference page could not be made: ${rc}")
endif()
execute_process(COMMAND ${KZGEN} outputs OUTPUT_QUIET RESULT_VARIABLE rc) # the table reads
file(READ "${WORK}/examples.json" examples)
string(JSON count LENGTH "${examples}")
file(STRINGS "${WORK}/reference.md" sections REGEX "^### 0x[0-9A-F][0-9A-F][0-9A-F][0-9A-F] ")
file(STRINGS "${WORK}/reference.md" bytes REGEX "^    [0-9a-f][0-9a-f]( [0-9a-f][0-9a-f])*$|^    \\(empty\\)$")
list(LENGTH sections nsections)
list(LENGTH bytes nbytes)
file(STRINGS "${WORK}/reference.md" codes REGEX "^Method codes: [0-9]+\\.$")
string(REGEX MATCH "[0-9]+" ncodes "${codes}")
if(NOT nsections EQUAL ncodes)
  message(FATAL_ERROR "the reference page has ${nsections} message sections for ${ncodes} codes")
endif()
if(nbytes LESS count)
  message(FATAL_ERROR "the reference page shows ${nbytes} example payloads for ${count} encoders")
endif()
message(STATUS "reference page: ${nsections} method codes, ${count} example payloads")
