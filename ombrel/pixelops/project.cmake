#SPDX - License - Identifier : MIT
#The projection agent : agent and scalar reference at the baseline, one kernel object per wider ISA.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR} / project.cpp ${CMAKE_CURRENT_LIST_DIR} /
               project_kernels_scalar.cpp)
    ombrel_add_kernels(project sse2 ${CMAKE_CURRENT_LIST_DIR} / project_kernels_sse2.cpp)
        ombrel_add_kernels(project avx2 ${CMAKE_CURRENT_LIST_DIR} / project_kernels_avx2.cpp)
            ombrel_add_kernels(project avx512 ${CMAKE_CURRENT_LIST_DIR} / project_kernels_avx512.cpp)

                if (OMBREL_BUILD_TESTS)
#OpenCV only checks our sums against an independent implementation; the library never links it.
                    find_package(OpenCV REQUIRED COMPONENTS core)
                        ombrel_add_test(project_tests ${CMAKE_CURRENT_LIST_DIR} / project_test.cpp)
                            target_link_libraries(project_tests PRIVATE ${OpenCV_LIBS})
                                target_include_directories(project_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
                                    endif()
