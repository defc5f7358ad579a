# SPDX-License-Identifier: MIT
function(ombrel_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wno-unknown-pragmas)
endfunction()
