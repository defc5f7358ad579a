# SPDX-License-Identifier: MIT
# Blob analysis: the agent, joiner, tree surgery, records and result pools at the baseline, the row coder's
# transition finder per ISA.
ombrel_add_operation(blob
  SOURCES blob_agent.cpp blob_joiner.cpp blob_tree.cpp blob_pool.cpp blob_record.cpp blob_result.cpp
          blob_rle.cpp blob_draw.cpp blob_feature_set.cpp blob_shape.cpp
  KERNELS sse2 blob_rle_kernels_sse2.cpp
          avx2 blob_rle_kernels_avx2.cpp
          avx512 blob_rle_kernels_avx512.cpp
  TESTS blob_agent_test.cpp blob_crosscheck_test.cpp blob_draw_test.cpp blob_shape_test.cpp
  TEST_LIBS OmbrelScenes
  OPENCV
  PUBLIC_HEADERS blob.h blob_feature_set.h blob_shape.h blob_agent.h blob_pool.h blob_record.h blob_result.h)

# The run joiner calls its own small members once per run, the tree surgery and the records add up split
# sums; letting the compiler inline the exported ones among them (nobody interposes them) is worth a few
# percent on noisy images. Hidden symbols cannot be interposed anyway: this matters only for the exports.
set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/blob_agent.cpp ${CMAKE_CURRENT_LIST_DIR}/blob_joiner.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_tree.cpp ${CMAKE_CURRENT_LIST_DIR}/blob_record.cpp
  ${CMAKE_CURRENT_LIST_DIR}/blob_result.cpp
  TARGET_DIRECTORY ombrel_objects APPEND PROPERTY COMPILE_OPTIONS -fno-semantic-interposition)
