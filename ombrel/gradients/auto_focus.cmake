# SPDX-License-Identifier: MIT
# The auto focus agent: built on the arithmetic and histogram agents, no kernels of its own.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/auto_focus.cpp)

if(OMBREL_BUILD_TESTS)
  # OpenCV makes the blurred copies and cross-checks the sums; the library never links it.
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  ombrel_add_test(auto_focus_tests ${CMAKE_CURRENT_LIST_DIR}/auto_focus_test.cpp)
  target_link_libraries(auto_focus_tests PRIVATE OmbrelScenes ${OpenCV_LIBS})
  target_include_directories(auto_focus_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
endif()
