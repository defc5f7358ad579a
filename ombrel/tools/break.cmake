# SPDX-License-Identifier: MIT
# Break detection: a pipeline of arithmetic and binary morphology agents; no kernels of its own.
target_sources(Ombrel PRIVATE ${CMAKE_CURRENT_LIST_DIR}/break.cpp)
ombrel_add_test(break_tests ${CMAKE_CURRENT_LIST_DIR}/break_test.cpp)
