# SPDX-License-Identifier: MIT
# Normalised correlation: template, match agent and sums at the baseline; the cross-sum kernel at every ISA.
# OpenCV cross-checks the correlation coefficients.
ombrel_add_operation(corr
  SOURCES corr_template.cpp corr_match.cpp corr_sums.cpp
  KERNELS scalar corr_kernels_scalar.cpp
          sse2 corr_kernels_sse2.cpp
          avx2 corr_kernels_avx2.cpp
          avx512 corr_kernels_avx512.cpp
          avx512vnni corr_kernels_avx512vnni.cpp
  TESTS corr_test.cpp corr_stream_test.cpp
  OPENCV
  PUBLIC_HEADERS corr_template.h corr_match.h)
