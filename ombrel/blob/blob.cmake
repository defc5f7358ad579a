# SPDX-License-Identifier: MIT
target_sources(Ombrel PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/blob_agent.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_joiner.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_tree.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_pool.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_record.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_result.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_rle.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_draw.cpp)
ombrel_add_kernels(blob_rle sse2 ${CMAKE_CURRENT_LIST_DIR}/blob_rle_kernels_sse2.cpp)
ombrel_add_kernels(blob_rle avx2 ${CMAKE_CURRENT_LIST_DIR}/blob_rle_kernels_avx2.cpp)
ombrel_add_kernels(blob_rle avx512 ${CMAKE_CURRENT_LIST_DIR}/blob_rle_kernels_avx512.cpp)

if(OMBREL_BUILD_TESTS)
  find_package(OpenCV REQUIRED COMPONENTS core imgproc)
  ombrel_add_test(blob_tests
    ${CMAKE_CURRENT_LIST_DIR}/blob_agent_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/blob_crosscheck_test.cpp
    ${CMAKE_CURRENT_LIST_DIR}/blob_draw_test.cpp)
  target_include_directories(blob_tests PRIVATE ${OpenCV_INCLUDE_DIRS})
  target_link_libraries(blob_tests PRIVATE ${OpenCV_LIBS} OmbrelScenes)
endif()

# The run joiner calls its own small members once per run, the tree surgery and the records add up split
# sums; letting the compiler inline them across the exported symbols (nobody interposes them) is worth a few
# percent on noisy images.
set_source_files_properties(${CMAKE_CURRENT_LIST_DIR}/blob_agent.cpp ${CMAKE_CURRENT_LIST_DIR}/blob_joiner.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_tree.cpp ${CMAKE_CURRENT_LIST_DIR}/blob_record.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_result.cpp
  TARGET_DIRECTORY Ombrel PROPERTIES COMPILE_OPTIONS -fno-semantic-interposition)
