# Run by cpack after it wrote the packages (CPACK_POST_BUILD_SCRIPTS): puts
# the -dbgsym packages in the shape Debian's own have. CPack lists their files
# in md5sums under the build directory's absolute paths and gives them no
# documentation folder; this rewrites md5sums from the files and links
# /usr/share/doc/<package>-dbgsym to the folder of the package it belongs to
# (which it depends on), as debhelper does.
cmake_minimum_required(VERSION 3.19)

list(GET CPACK_PACKAGE_FILES 0 first)
get_filename_component(dir "${first}" DIRECTORY)
file(GLOB ddebs "${dir}/*.ddeb")
foreach(ddeb IN LISTS ddebs)
  set(tree "${ddeb}.tree")
  file(REMOVE_RECURSE "${tree}")
  execute_process(COMMAND dpkg-deb -R "${ddeb}" "${tree}" COMMAND_ERROR_IS_FATAL ANY)
  file(STRINGS "${tree}/DEBIAN/control" name REGEX "^Package: ")
  string(REGEX REPLACE "^Package: (.*)-dbgsym$" "\\1" base "${name}")

  file(MAKE_DIRECTORY "${tree}/usr/share/doc")
  file(CREATE_LINK "${base}" "${tree}/usr/share/doc/${base}-dbgsym" SYMBOLIC)

  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${tree}" "${tree}/usr/*")
  list(SORT files)
  set(sums "")
  foreach(f IN LISTS files)
    if(NOT IS_SYMLINK "${tree}/${f}")
      file(MD5 "${tree}/${f}" md5)
      string(APPEND sums "${md5}  ${f}\n")
    endif()
  endforeach()
  file(WRITE "${tree}/DEBIAN/md5sums" "${sums}")

  execute_process(COMMAND dpkg-deb --root-owner-group -Zgzip -b "${tree}" "${ddeb}"
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE "${tree}")
endforeach()
