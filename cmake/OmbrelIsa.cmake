# SPDX-License-Identifier: MIT
# Kernels are compiled once per instruction set into their own object library; only those objects get the
# ISA flags, so nothing wider than the baseline leaks into code that runs before dispatch has checked the CPU.
set(OMBREL_ISA_LEVELS scalar sse2 avx2 avx512)
set(OMBREL_ISA_FLAGS_scalar "")
set(OMBREL_ISA_FLAGS_sse2 "-msse2")
set(OMBREL_ISA_FLAGS_avx2 "-mavx2;-mfma;-mbmi;-mbmi2;-mpopcnt")
set(OMBREL_ISA_FLAGS_avx512 "-mavx512f;-mavx512bw;-mavx512vl;-mavx512dq;-mavx2;-mfma;-mbmi;-mbmi2;-mpopcnt")
message(STATUS "Ombrel: ISA levels compiled in: ${OMBREL_ISA_LEVELS} (chosen at run time, capped by OMBREL_MAX_ISA)")

# ombrel_add_kernels(<name> <isa> <sources...>): builds the sources with the flags of <isa> into Ombrel.
function(ombrel_add_kernels name isa)
  set(lib ombrel_kernels_${name}_${isa})
  add_library(${lib} OBJECT ${ARGN})
  set_target_properties(${lib} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_include_directories(${lib} PRIVATE ${PROJECT_SOURCE_DIR})
  target_compile_options(${lib} PRIVATE ${OMBREL_ISA_FLAGS_${isa}})
  ombrel_warnings(${lib})
  target_sources(Ombrel PRIVATE $<TARGET_OBJECTS:${lib}>)
endfunction()
