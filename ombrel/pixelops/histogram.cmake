# SPDX-License-Identifier: MIT
# The histogram agent: agent and its one counting kernel, both at the baseline.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/histogram.cpp
  ${CMAKE_CURRENT_LIST_DIR}/histogram_kernels_scalar.cpp)

if(OMBREL_BUILD_TESTS)
  # OpenCV only checks our counts against an independent implementation; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  ombrel_add_test(histogram_tests ${CMAKE_CURRENT_LIST_DIR}/histogram_test.cpp)
  target_link_libraries(histogram_tests PRIVATE OmbrelScenes ${OpenCV_LIBS})
  target_include_directories(histogram_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
endif()
