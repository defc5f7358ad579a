# SPDX-License-Identifier: MIT
# The auto focus agent: built on the arithmetic and histogram agents, no kernels of its own. OpenCV makes the
# blurred copies and cross-checks the sums.
ombrel_add_operation(auto_focus
  SOURCES auto_focus.cpp
  TESTS auto_focus_test.cpp
  TEST_LIBS OmbrelScenes OmbrelAllocationCounter
  OPENCV
  PUBLIC_HEADERS auto_focus.h)
