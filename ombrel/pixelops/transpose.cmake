# SPDX-License-Identifier: MIT
# The transposition agent: agent and scalar reference at the baseline, one kernel object per wider ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/transpose.cpp
  ${CMAKE_CURRENT_LIST_DIR}/transpose_kernels_scalar.cpp)
ombrel_add_kernels(transpose sse2 ${CMAKE_CURRENT_LIST_DIR}/transpose_kernels_sse2.cpp)
ombrel_add_kernels(transpose avx2 ${CMAKE_CURRENT_LIST_DIR}/transpose_kernels_avx2.cpp)
ombrel_add_kernels(transpose avx512 ${CMAKE_CURRENT_LIST_DIR}/transpose_kernels_avx512.cpp)

if(OMBREL_BUILD_TESTS)
  # OpenCV only cross-checks turns and mirrors against an independent implementation; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  ombrel_add_test(transpose_tests ${CMAKE_CURRENT_LIST_DIR}/transpose_test.cpp)
  target_link_libraries(transpose_tests PRIVATE ${OpenCV_LIBS})
  target_include_directories(transpose_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
endif()
