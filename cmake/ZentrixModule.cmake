# zx_module(<dir> DEPS ...): builds <dir>/*.cpp (without *_test.cpp and main.cpp)
# into the static library zx_<dir>, and <dir>/*_test.cpp into <dir>_tests.
function(zx_module dir)
  cmake_parse_arguments(ZX "" "" "DEPS" ${ARGN})
  file(GLOB all CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
  set(sources "")
  set(tests "")
  foreach(f ${all})
    if(f MATCHES "_test\\.cpp$")
      list(APPEND tests ${f})
    elseif(NOT f MATCHES "/main\\.cpp$")
      list(APPEND sources ${f})
    endif()
  endforeach()
  if(NOT sources)
    # Keep an (empty) library so dependants can link before the code lands.
    set(sources ${CMAKE_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(zx_${dir} STATIC ${sources})
  target_include_directories(zx_${dir} PUBLIC ${CMAKE_SOURCE_DIR})
  target_link_libraries(zx_${dir} PUBLIC ${ZX_DEPS})
  if(tests)
    add_executable(${dir}_tests ${tests})
    target_link_libraries(${dir}_tests PRIVATE zx_${dir} zx_testsupport GTest::gmock GTest::gtest_main)
    zx_register_tests(${dir}_tests)
  endif()
endfunction()

# Every test runs under its own scratch system root, so nothing touches /dev,
# /etc or /var/log of the machine.
function(zx_register_tests target)
  gtest_discover_tests(${target}
    DISCOVERY_MODE PRE_TEST
    DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "ZENTRIX_ROOT=${CMAKE_BINARY_DIR}/test-root" TIMEOUT 300)
endfunction()
