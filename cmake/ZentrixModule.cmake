# zx_module(<dir> SOURCES <file>... [DEPS <lib>...] [TESTS <file>...]
#           [THREADED_SUITES <suite>...] [ELSEWHERE <file>...])
# builds <dir>/SOURCES into the static library zx_<dir> and, when testing is
# on, <dir>/TESTS into the test program <dir>_tests (see zx_register_tests).
# ELSEWHERE names sources of the directory that another target builds.
function(zx_module dir)
  cmake_parse_arguments(ZX "" "" "SOURCES;DEPS;TESTS;THREADED_SUITES;ELSEWHERE" ${ARGN})
  set(base ${CMAKE_SOURCE_DIR}/${dir})
  zx_check_listed(${base} ${ZX_SOURCES} ${ZX_TESTS} ${ZX_ELSEWHERE})
  list(TRANSFORM ZX_SOURCES PREPEND ${base}/)
  add_library(zx_${dir} STATIC ${ZX_SOURCES})
  target_include_directories(zx_${dir} PUBLIC ${CMAKE_SOURCE_DIR})
  target_link_libraries(zx_${dir} PUBLIC ${ZX_DEPS})
  if(BUILD_TESTING AND ZX_TESTS)
    list(TRANSFORM ZX_TESTS PREPEND ${base}/)
    add_executable(${dir}_tests ${ZX_TESTS})
    target_link_libraries(${dir}_tests PRIVATE zx_${dir} zx_testsupport GTest::gmock GTest::gtest_main)
    zx_register_tests(${dir}_tests THREADED_SUITES ${ZX_THREADED_SUITES})
  endif()
endfunction()

# zx_register_tests(<target> [THREADED_SUITES <suite>... | ALL])
# Every test runs under its own scratch system root, so nothing touches /dev,
# /etc or /var/log of the machine. The suites named here start threads or
# peer processes (the agent simulator, Zentrix, a fake daemon, a socket-pair
# peer, a forked child); their tests carry the label "threads", which is what
# the ThreadSanitizer run selects. A new suite that does so belongs in the
# list; ALL marks every suite of the program.
function(zx_register_tests target)
  cmake_parse_arguments(ZX "" "" "THREADED_SUITES" ${ARGN})
  set(common DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60)
  set(properties ENVIRONMENT "ZENTRIX_ROOT=${CMAKE_BINARY_DIR}/test-root" TIMEOUT 300)
  if(ZX_THREADED_SUITES STREQUAL "ALL")
    gtest_discover_tests(${target} ${common} PROPERTIES ${properties} LABELS threads)
    return()
  endif()
  if(NOT ZX_THREADED_SUITES)
    gtest_discover_tests(${target} ${common} PROPERTIES ${properties})
    return()
  endif()
  # A misspelt or renamed suite would silently lose its label.
  get_target_property(sources ${target} SOURCES)
  set(text "")
  foreach(source ${sources})
    file(READ ${source} content)
    string(APPEND text "${content}")
  endforeach()
  set(filter "")
  foreach(suite ${ZX_THREADED_SUITES})
    if(NOT text MATCHES "TEST(_F|_P)?\\(${suite},")
      message(FATAL_ERROR "${target}: no test suite ${suite} in its sources")
    endif()
    # Parameterised suites are named <prefix>/<suite>.
    list(APPEND filter "${suite}.*" "*/${suite}.*")
  endforeach()
  list(JOIN filter ":" filter)
  gtest_discover_tests(${target} ${common} TEST_FILTER "${filter}" PROPERTIES ${properties} LABELS threads)
  gtest_discover_tests(${target} ${common} TEST_FILTER "-${filter}" PROPERTIES ${properties})
endfunction()

# zx_check_listed(<dir> <file>...): every .cpp in <dir> must be one of the
# files named, so a source added without its build line (a test dropped in by
# a merge, say) stops the configure instead of silently not being built.
function(zx_check_listed dir)
  file(GLOB present RELATIVE ${dir} ${dir}/*.cpp)
  list(REMOVE_ITEM present ${ARGN})
  if(present)
    message(FATAL_ERROR "${dir}: not in any source list: ${present}")
  endif()
endfunction()
