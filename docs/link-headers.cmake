# cmake -DHTML=<doxygen html dir> -P link-headers.cmake
#
# The pages link headers by their path in the repository (the README's
# `[kzconnection.h](KZProtocolResolver/kzconnection.h)`), which Doxygen leaves
# as they are; in the HTML those links lead nowhere. This points each one at
# the page Doxygen made for that header (kzconnection.h -> kzconnection_8h.html,
# with '_' doubled as Doxygen does), and fails on one whose header has no page.

cmake_minimum_required(VERSION 3.16)

file(GLOB pages "${HTML}/*.html")
set(missing "")
foreach(page IN LISTS pages)
  file(READ "${page}" text)
  string(REGEX MATCHALL "href=\"[A-Za-z0-9_/.-]*\\.h\"" links "${text}")
  if(NOT links)
    continue()
  endif()
  list(REMOVE_DUPLICATES links)
  foreach(link IN LISTS links)
    string(REGEX REPLACE "^href=\"(.*)\"$" "\\1" path "${link}")
    get_filename_component(name "${path}" NAME)
    string(REPLACE "_" "__" target "${name}")
    string(REPLACE "." "_8" target "${target}")
    set(target "${target}.html")
    if(NOT EXISTS "${HTML}/${target}")
      list(APPEND missing "${path} (in ${page})")
      continue()
    endif()
    string(REPLACE "${link}" "href=\"${target}\"" text "${text}")
  endforeach()
  file(WRITE "${page}" "${text}")
endforeach()
if(missing)
  string(REPLACE ";" "\n  " missing "${missing}")
  message(FATAL_ERROR "links to headers without a page:\n  ${missing}")
endif()
