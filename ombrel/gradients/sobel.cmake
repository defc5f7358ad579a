# SPDX-License-Identifier: MIT
# The Sobel agent and the shared gradient tables: agent, tables and scalar reference at the baseline, one
# kernel object per wider ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/sobel.cpp ${CMAKE_CURRENT_LIST_DIR}/sobel_tables.cpp
  ${CMAKE_CURRENT_LIST_DIR}/sobel_kernels_scalar.cpp)
ombrel_add_kernels(sobel sse2 ${CMAKE_CURRENT_LIST_DIR}/sobel_kernels_sse2.cpp)
ombrel_add_kernels(sobel avx2 ${CMAKE_CURRENT_LIST_DIR}/sobel_kernels_avx2.cpp)
ombrel_add_kernels(sobel avx512 ${CMAKE_CURRENT_LIST_DIR}/sobel_kernels_avx512.cpp)

if(OMBREL_BUILD_TESTS)
  # OpenCV only cross-checks the gradients; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  ombrel_add_test(sobel_tests ${CMAKE_CURRENT_LIST_DIR}/sobel_test.cpp)
  target_link_libraries(sobel_tests PRIVATE ${OpenCV_LIBS})
  target_include_directories(sobel_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
endif()
