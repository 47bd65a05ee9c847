# cmake -DXML=<doxygen xml dir> -P check-enumvalues.cmake
#
# Doxygen does not warn about an undocumented enum value, so the docs build
# runs this after it: it reads Doxygen's XML output and fails, naming them,
# when any enum value has neither a brief nor a detailed description.

cmake_minimum_required(VERSION 3.16)

file(GLOB xml_files "${XML}/*.xml")
set(undocumented "")
foreach(f IN LISTS xml_files)
  file(READ "${f}" text)
  while(TRUE)
    string(FIND "${text}" "<enumvalue " start)
    if(start EQUAL -1)
      break()
    endif()
    string(SUBSTRING "${text}" ${start} -1 text)
    string(FIND "${text}" "</enumvalue>" end)
    string(SUBSTRING "${text}" 0 ${end} value)
    string(SUBSTRING "${text}" ${end} -1 text)
    string(REGEX MATCH "<name>([^<]*)</name>" _ "${value}")
    set(name "${CMAKE_MATCH_1}")
    # A description is documented when it holds a paragraph.
    if(NOT value MATCHES "<para>")
      list(APPEND undocumented "${name}")
    endif()
  endwhile()
endforeach()
if(NOT xml_files)
  message(FATAL_ERROR "no Doxygen XML in ${XML}")
endif()
if(undocumented)
  list(REMOVE_DUPLICATES undocumented)
  string(REPLACE ";" ", " undocumented "${undocumented}")
  message(FATAL_ERROR "enum values without documentation: ${undocumented}")
endif()
