# SPDX-License-Identifier: MIT
# The Sobel agent and the shared gradient tables: agent and tables at the baseline, the scalar reference and
# one kernel object per wider ISA. OpenCV cross-checks the gradients.
ombrel_add_operation(sobel
  SOURCES sobel.cpp sobel_tables.cpp
  KERNELS scalar sobel_kernels_scalar.cpp
          sse2 sobel_kernels_sse2.cpp
          avx2 sobel_kernels_avx2.cpp
          avx512 sobel_kernels_avx512.cpp
  TESTS sobel_test.cpp
  OPENCV
  PUBLIC_HEADERS sobel.h sobel_ops.h sobel_tables.h)
