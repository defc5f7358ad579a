# SPDX-License-Identifier: MIT
# The projection agent: agent at the baseline, the scalar reference and one kernel object per wider ISA.
# OpenCV checks our sums against an independent implementation.
ombrel_add_operation(project
  SOURCES project.cpp
  KERNELS scalar project_kernels_scalar.cpp
          sse2 project_kernels_sse2.cpp
          avx2 project_kernels_avx2.cpp
          avx512 project_kernels_avx512.cpp
  TESTS project_test.cpp
  OPENCV
  PUBLIC_HEADERS project.h)
