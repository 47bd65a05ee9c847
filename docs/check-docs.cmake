# cmake -DDOXYGEN=<doxygen> -DDOXYFILE=<build>/docs/Doxyfile -DWORK=<dir>
#       -DCHECK_ENUMS=<docs/check-enumvalues.cmake> -P check-docs.cmake
#
# Checks that the reference documentation's configuration fails on what it
# must fail on. Each case runs Doxygen with the project's Doxyfile on a small
# header of its own (the project's inputs replaced) and expects either a clean
# run or a failed run whose output names the offending symbol. A run is what
# the target `docs` does: Doxygen, then the enum-value check on its XML.

cmake_minimum_required(VERSION 3.16)

file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
file(READ "${DOXYFILE}" config)

# case name | expected result (pass/fail) | symbol the output must name |
# header text, with % for each semicolon (list separators would cut it)
set(cases
  "documented|pass||/// @file fixture.h\n/// A fixture.\n\n/// A documented class.\nclass Documented\n{\npublic:\n    /// A documented call.\n    void call()%\n}%\n"
  "undocumented member|fail|call|/// @file fixture.h\n/// A fixture.\n\n/// A documented class.\nclass Documented\n{\npublic:\n    void call()%\n}%\n"
  "undocumented callback type|fail|SomeCB|/// @file fixture.h\n/// A fixture.\n\n/// A documented class.\nclass Documented\n{\npublic:\n    using SomeCB = void (*)(void* ctx)%\n}%\n"
  "undocumented field|fail|value|/// @file fixture.h\n/// A fixture.\n\n/// A documented record.\nstruct Record\n{\n    int value = 0%\n}%\n"
  "undocumented enum value|fail|Second|/// @file fixture.h\n/// A fixture.\n\n/// A documented enum.\nenum Kind {\n    First, ///< the first\n    Second\n}%\n"
  "undocumented macro|fail|KZ_FIXTURE_MACRO|/// @file fixture.h\n/// A fixture.\n\n#define KZ_FIXTURE_MACRO 1\n"
  "broken reference|fail|noSuchCall|/// @file fixture.h\n/// A fixture: see @ref noSuchCall.\n"
)

set(failures 0)
set(n 0)
foreach(c IN LISTS cases)
  string(REPLACE "|" ";" parts "${c}")
  list(GET parts 0 name)
  list(GET parts 1 expect)
  list(GET parts 2 symbol)
  list(GET parts 3 header)
  string(ASCII 59 semicolon)
  string(REPLACE "%" "${semicolon}" header "${header}")
  math(EXPR n "${n} + 1")
  set(dir "${WORK}/case${n}")
  file(MAKE_DIRECTORY "${dir}")
  file(WRITE "${dir}/fixture.h" "${header}")
  # Later settings override earlier ones: the fixture replaces the inputs.
  file(WRITE "${dir}/Doxyfile" "${config}\n"
       "INPUT = ${dir}/fixture.h\n"
       "USE_MDFILE_AS_MAINPAGE =\n"
       "OUTPUT_DIRECTORY = ${dir}/out\n"
       "STRIP_FROM_PATH = ${dir}\n")
  execute_process(COMMAND "${DOXYGEN}" "${dir}/Doxyfile" WORKING_DIRECTORY "${dir}"
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  set(out "${out}${err}")
  if(rc EQUAL 0)
    execute_process(COMMAND "${CMAKE_COMMAND}" -DXML=${dir}/out/xml -P "${CHECK_ENUMS}"
                    RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    set(out "${out}${err}")
  endif()
  if(expect STREQUAL "pass" AND NOT rc EQUAL 0)
    message(SEND_ERROR "${name}: expected a clean run, got ${rc}:\n${out}")
    math(EXPR failures "${failures} + 1")
  elseif(expect STREQUAL "fail" AND rc EQUAL 0)
    message(SEND_ERROR "${name}: expected the run to fail, it passed:\n${out}")
    math(EXPR failures "${failures} + 1")
  elseif(expect STREQUAL "fail" AND NOT out MATCHES "${symbol}")
    message(SEND_ERROR "${name}: the failure does not name ${symbol}:\n${out}")
    math(EXPR failures "${failures} + 1")
  else()
    message(STATUS "ok: ${name}")
  endif()
endforeach()
if(failures)
  message(FATAL_ERROR "${failures} of ${n} documentation checks failed")
endif()
