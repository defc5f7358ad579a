# SPDX-License-Identifier: MIT
# The arithmetic agent: the agent and its dispatch at the baseline, the kernels once per instruction set.
target_sources(Ombrel PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/arith.cpp
  ${CMAKE_CURRENT_LIST_DIR}/arith_kernels.cpp
  ${CMAKE_CURRENT_LIST_DIR}/arith_kernels_scalar.cpp)
ombrel_add_kernels(arith sse2 ${CMAKE_CURRENT_LIST_DIR}/arith_kernels_sse2.cpp)
ombrel_add_kernels(arith avx2 ${CMAKE_CURRENT_LIST_DIR}/arith_kernels_avx2.cpp)
ombrel_add_kernels(arith avx512 ${CMAKE_CURRENT_LIST_DIR}/arith_kernels_avx512.cpp)

ombrel_add_test(arith_tests ${CMAKE_CURRENT_LIST_DIR}/arith_test.cpp)
# Cross-checks against OpenCV where it computes the same bytes (tests only; the library never links it).
if(TARGET arith_tests)
  find_package(OpenCV QUIET COMPONENTS core)
  if(OpenCV_FOUND)
    target_compile_definitions(arith_tests PRIVATE OMBREL_TEST_WITH_OPENCV)
    target_include_directories(arith_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
    target_link_libraries(arith_tests PRIVATE ${OpenCV_LIBS})
  endif()
endif()
