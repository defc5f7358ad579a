# SPDX-License-Identifier: MIT
# Grey morphology: element, agent and the scalar references at the baseline, the row kernel once per ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/graymorph.cpp ${CMAKE_CURRENT_LIST_DIR}/graymorph_element.cpp
  ${CMAKE_CURRENT_LIST_DIR}/graymorph_kernels_scalar.cpp)
ombrel_add_kernels(graymorph sse2 ${CMAKE_CURRENT_LIST_DIR}/graymorph_kernels_sse2.cpp)
ombrel_add_kernels(graymorph avx2 ${CMAKE_CURRENT_LIST_DIR}/graymorph_kernels_avx2.cpp)
ombrel_add_kernels(graymorph avx512 ${CMAKE_CURRENT_LIST_DIR}/graymorph_kernels_avx512.cpp)
ombrel_add_test(graymorph_tests ${CMAKE_CURRENT_LIST_DIR}/graymorph_test.cpp)
if(TARGET graymorph_tests)
  # OpenCV only cross-checks erosion and dilation; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  target_include_directories(graymorph_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
  target_link_libraries(graymorph_tests PRIVATE ${OpenCV_LIBS})
endif()
