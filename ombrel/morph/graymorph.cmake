# SPDX-License-Identifier: MIT
# Grey morphology: element and agent at the baseline, the scalar references and the row kernel once per ISA.
# OpenCV cross-checks erosion and dilation.
ombrel_add_operation(graymorph
  SOURCES graymorph.cpp graymorph_element.cpp
  KERNELS scalar graymorph_kernels_scalar.cpp
          sse2 graymorph_kernels_sse2.cpp
          avx2 graymorph_kernels_avx2.cpp
          avx512 graymorph_kernels_avx512.cpp
  TESTS graymorph_test.cpp graymorph_stream_test.cpp
  OPENCV
  PUBLIC_HEADERS graymorph.h graymorph_ops.h)
