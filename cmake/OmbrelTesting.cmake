# SPDX-License-Identifier: MIT
# ombrel_add_test(<name> <sources...>): a GoogleTest binary linked to the test support and to the library's
# internal archive, whole: tests reach kernels and planners the shared library does not export, and the
# start-up object (which nothing references) still runs.
function(ombrel_add_test name)
  if(NOT OMBREL_BUILD_TESTS)
    return()
  endif()
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE OmbrelTestSupport "$<LINK_LIBRARY:WHOLE_ARCHIVE,OmbrelInternal>"
                                        GTest::gtest GTest::gtest_main)
  ombrel_warnings(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
