#SPDX - License - Identifier : MIT
#The frame - averaging agent : agent and scalar reference at the baseline, one kernel object per wider ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR} / frame_average.cpp ${CMAKE_CURRENT_LIST_DIR} /
               frame_average_kernels_scalar.cpp)
    ombrel_add_kernels(frame_average sse2 ${CMAKE_CURRENT_LIST_DIR} / frame_average_kernels_sse2.cpp)
        ombrel_add_kernels(frame_average avx2 ${CMAKE_CURRENT_LIST_DIR} / frame_average_kernels_avx2.cpp)
            ombrel_add_kernels(frame_average avx512 ${CMAKE_CURRENT_LIST_DIR} /
                               frame_average_kernels_avx512.cpp)
                ombrel_add_test(frame_average_tests ${CMAKE_CURRENT_LIST_DIR} / frame_average_test.cpp)
