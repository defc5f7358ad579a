# SPDX-License-Identifier: MIT
# The scene angle agent: built on the Sobel agent and the histogram agent, no kernels of its own.
ombrel_add_operation(scene_angle
  SOURCES scene_angle.cpp
  TESTS scene_angle_test.cpp
  TEST_LIBS OmbrelAllocationCounter
  PUBLIC_HEADERS scene_angle.h)
