# SPDX-License-Identifier: MIT
# ombrel_add_test(<name> <sources...>): a GoogleTest binary linked to the library and the test support.
function(ombrel_add_test name)
  if(NOT OMBREL_BUILD_TESTS)
    return()
  endif()
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE Ombrel OmbrelTestSupport GTest::gtest GTest::gtest_main)
  ombrel_warnings(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
