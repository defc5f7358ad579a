# SPDX-License-Identifier: MIT
# The histogram agent and its one counting kernel, both at the baseline. OpenCV checks our counts against an
# independent implementation.
ombrel_add_operation(histogram
  SOURCES histogram.cpp grey_statistics.cpp
  KERNELS scalar histogram_kernels_scalar.cpp
  TESTS histogram_test.cpp grey_statistics_test.cpp
  TEST_LIBS OmbrelScenes
  OPENCV
  PUBLIC_HEADERS histogram.h grey_statistics.h)
