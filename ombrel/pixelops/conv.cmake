#SPDX - License - Identifier : MIT
#The convolution agent : agent at the baseline, the scalar reference and one kernel object per wider ISA.
#OpenCV's filter2D cross-checks the sums.
ombrel_add_operation(conv SOURCES conv.cpp KERNELS scalar conv_kernels_scalar.cpp sse2
                         conv_kernels_sse2.cpp avx2 conv_kernels_avx2.cpp avx512
                             conv_kernels_avx512.cpp TESTS conv_test.cpp OPENCV PUBLIC_HEADERS conv.h)
