# SPDX-License-Identifier: MIT
# Blob analysis: the agent, records and result pools at the baseline, the row coder's kernels per ISA.
# blob_rle.h is installed only because blob_agent.h includes it.
ombrel_add_operation(blob
  SOURCES blob_agent.cpp blob_pool.cpp blob_record.cpp blob_rle.cpp blob_draw.cpp halvard_metadc.cpp
  KERNELS sse2 blob_rle_kernels_sse2.cpp
          avx2 blob_rle_kernels_avx2.cpp
  TESTS blob_agent_test.cpp blob_crosscheck_test.cpp halvard_metadc_test.cpp
  TEST_LIBS OmbrelScenes
  OPENCV
  PUBLIC_HEADERS blob.h blob_agent.h blob_pool.h blob_result.h blob_rle.h halvard_metadc.h
  # The blob headers do not mark their exports with OMBREL_API yet; until they do, these files keep default
  # visibility so that programs linking the shared library find them. The row coder stays hidden.
  DEFAULT_VISIBILITY blob_agent.cpp blob_pool.cpp blob_record.cpp blob_draw.cpp halvard_metadc.cpp)

# The run joiner calls its own small members once per run, and merges add up split sums; letting the
# compiler inline them across exported symbols (nobody interposes them) is worth a few percent on noisy
# images. Hidden symbols cannot be interposed anyway: this matters only for what the library exports.
set_property(SOURCE ${CMAKE_CURRENT_LIST_DIR}/blob_agent.cpp ${CMAKE_CURRENT_LIST_DIR}/blob_record.cpp
  TARGET_DIRECTORY ombrel_objects APPEND PROPERTY COMPILE_OPTIONS -fno-semantic-interposition)
