# SPDX-License-Identifier: MIT
# Break detection: a pipeline of arithmetic and binary morphology agents; no kernels of its own.
ombrel_add_operation(break
  SOURCES break.cpp
  TESTS break_test.cpp
  PUBLIC_HEADERS break.h)
