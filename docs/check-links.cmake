# cmake -DHTML=<doxygen html dir> -P check-links.cmake
#
# Fails on a link of the built pages that leads nowhere: a relative href
# (neither a scheme nor only an anchor) whose file is not in the HTML folder,
# such as a page linking a repository folder, which has no page of its own.

cmake_minimum_required(VERSION 3.16)

file(GLOB pages "${HTML}/*.html")
set(broken "")
foreach(page IN LISTS pages)
  file(READ "${page}" text)
  string(REGEX MATCHALL "href=\"[^\":#?]+[\"#?]" links "${text}")
  list(REMOVE_DUPLICATES links)
  foreach(link IN LISTS links)
    string(REGEX REPLACE "^href=\"([^\"#?]+).*$" "\\1" path "${link}")
    if(NOT EXISTS "${HTML}/${path}")
      get_filename_component(name "${page}" NAME)
      list(APPEND broken "${path} (in ${name})")
    endif()
  endforeach()
endforeach()
if(broken)
  list(REMOVE_DUPLICATES broken)
  string(REPLACE ";" "\n  " broken "${broken}")
  message(FATAL_ERROR "links that lead nowhere:\n  ${broken}")
endif()
