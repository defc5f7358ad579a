# SPDX-License-Identifier: MIT
# Binary morphology: agent and operator tables at the baseline, the scalar reference and one kernel object
# per wider ISA that has byte shuffles. OpenCV cross-checks erosion and dilation.
ombrel_add_operation(binmorph
  SOURCES binmorph.cpp
  KERNELS scalar binmorph_kernels_scalar.cpp
          avx2 binmorph_kernels_avx2.cpp
          avx512 binmorph_kernels_avx512.cpp
  TESTS binmorph_test.cpp
  OPENCV
  PUBLIC_HEADERS binmorph.h binmorph_ops.h)
