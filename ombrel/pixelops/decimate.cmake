# SPDX-License-Identifier: MIT
# The decimation agent: agent and scalar reference at the baseline, one kernel object per wider ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/decimate.cpp
  ${CMAKE_CURRENT_LIST_DIR}/decimate_kernels_scalar.cpp)
ombrel_add_kernels(decimate sse2 ${CMAKE_CURRENT_LIST_DIR}/decimate_kernels_sse2.cpp)
ombrel_add_kernels(decimate avx2 ${CMAKE_CURRENT_LIST_DIR}/decimate_kernels_avx2.cpp)
ombrel_add_kernels(decimate avx512 ${CMAKE_CURRENT_LIST_DIR}/decimate_kernels_avx512.cpp)

if(OMBREL_BUILD_TESTS)
  # OpenCV only cross-checks the filter against an independent implementation; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  ombrel_add_test(decimate_tests ${CMAKE_CURRENT_LIST_DIR}/decimate_test.cpp)
  target_link_libraries(decimate_tests PRIVATE ${OpenCV_LIBS})
  target_include_directories(decimate_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
endif()
