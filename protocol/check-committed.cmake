# cmake -DNEW=<dir> -DOLD=<dir> -DFILES=<names> -DSTAMP=<file> -P check-committed.cmake
#
# The public headers generated from the protocol table are committed; this
# fails the build when a committed copy differs from what the table gives now,
# and writes STAMP when all match.
set(stale "")
foreach(f IN LISTS FILES)
  file(READ "${NEW}/${f}" fresh)
  set(kept "")
  if(EXISTS "${OLD}/${f}")
    file(READ "${OLD}/${f}" kept)
  endif()
  if(NOT fresh STREQUAL kept)
    list(APPEND stale "${f}")
  endif()
endforeach()
if(stale)
  string(REPLACE ";" ", " stale "${stale}")
  message(FATAL_ERROR
    "KZProtocolResolver/${stale}: out of date with the protocol table (protocol/*.table).\n"
    "Refresh with: cmake --build <build dir> --target protocol_refresh\n"
    "and commit the result with the change to the table.")
endif()
file(WRITE "${STAMP}" "")
