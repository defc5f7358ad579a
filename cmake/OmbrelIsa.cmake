# SPDX-License-Identifier: MIT
# Kernels are compiled once per instruction set into their own object library; only those objects get the
# ISA flags, so nothing wider than the baseline leaks into code that runs before dispatch has checked the CPU.
set(OMBREL_ISA_LEVELS scalar sse2 avx2 avx512 avx512vnni)
set(OMBREL_ISA_FLAGS_scalar "")
set(OMBREL_ISA_FLAGS_sse2 "-msse2")
set(OMBREL_ISA_FLAGS_avx2 "-mavx2;-mfma;-mbmi;-mbmi2;-mpopcnt")
set(OMBREL_ISA_FLAGS_avx512 "-mavx512f;-mavx512bw;-mavx512vl;-mavx512dq;-mavx2;-mfma;-mbmi;-mbmi2;-mpopcnt")
set(OMBREL_ISA_FLAGS_avx512vnni "${OMBREL_ISA_FLAGS_avx512};-mavx512vnni")
message(STATUS "Ombrel: ISA levels compiled in: ${OMBREL_ISA_LEVELS} (chosen at run time, capped by OMBREL_MAX_ISA)")

# ombrel_add_kernels(<name> <isa> <sources...>): the sources built with the flags of <isa> into the library.
# Operations list their kernels through ombrel_add_operation(... KERNELS ...), which comes to the same.
function(ombrel_add_kernels name isa)
  if(NOT isa IN_LIST OMBREL_ISA_LEVELS)
    message(FATAL_ERROR "Ombrel: unknown ISA '${isa}' (known: ${OMBREL_ISA_LEVELS})")
  endif()
  _ombrel_existing_files(files "kernel" ${ARGN})
  _ombrel_add_kernel_objects(${name} ${isa} ${files})
endfunction()
