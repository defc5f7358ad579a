# SPDX-License-Identifier: MIT
# Binary morphology: agent, operator tables and the scalar reference at the baseline, one kernel object per
# wider ISA that has byte shuffles.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/binmorph.cpp ${CMAKE_CURRENT_LIST_DIR}/binmorph_kernels_scalar.cpp)
ombrel_add_kernels(binmorph avx2 ${CMAKE_CURRENT_LIST_DIR}/binmorph_kernels_avx2.cpp)
ombrel_add_kernels(binmorph avx512 ${CMAKE_CURRENT_LIST_DIR}/binmorph_kernels_avx512.cpp)
ombrel_add_test(binmorph_tests ${CMAKE_CURRENT_LIST_DIR}/binmorph_test.cpp)
if(TARGET binmorph_tests)
  # OpenCV only cross-checks erosion and dilation; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  target_include_directories(binmorph_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
  target_link_libraries(binmorph_tests PRIVATE ${OpenCV_LIBS})
endif()
