# Read by cpack before it builds a package: only a plain Release build may be
# shipped (a sanitizer build would pull in the sanitizer runtimes, a debug
# build is slow).
if(NOT CPACK_ZENTRIX_BUILD_TYPE STREQUAL "Release" OR NOT CPACK_ZENTRIX_SANITIZE STREQUAL "")
  message(FATAL_ERROR "Packages are made from a Release build without sanitizers; this build "
                      "directory has CMAKE_BUILD_TYPE='${CPACK_ZENTRIX_BUILD_TYPE}' "
                      "ZENTRIX_SANITIZE='${CPACK_ZENTRIX_SANITIZE}'. Configure one with "
                      "-DCMAKE_BUILD_TYPE=Release.")
endif()
