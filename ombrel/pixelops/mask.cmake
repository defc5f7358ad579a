# SPDX-License-Identifier: MIT
# The mask agent: agent and scalar reference at the baseline, one kernel object per wider ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/mask.cpp ${CMAKE_CURRENT_LIST_DIR}/mask_kernels_scalar.cpp)
ombrel_add_kernels(mask sse2 ${CMAKE_CURRENT_LIST_DIR}/mask_kernels_sse2.cpp)
ombrel_add_kernels(mask avx2 ${CMAKE_CURRENT_LIST_DIR}/mask_kernels_avx2.cpp)
ombrel_add_kernels(mask avx512 ${CMAKE_CURRENT_LIST_DIR}/mask_kernels_avx512.cpp)
ombrel_add_test(mask_tests ${CMAKE_CURRENT_LIST_DIR}/mask_test.cpp)
