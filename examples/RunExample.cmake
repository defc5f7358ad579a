# SPDX-License-Identifier: MIT
# Runs the example PROGRAM (with ARGS, a ;-list) and fails unless it exits with 0 and its output matches
# EXPECTED: an example that crashed after printing the right line must not pass.
execute_process(COMMAND ${PROGRAM} ${ARGS} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE errors)
message("${output}${errors}")
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} exited with ${status}")
endif()
if(NOT output MATCHES "${EXPECTED}")
  message(FATAL_ERROR "the output does not contain what the scene must give: ${EXPECTED}")
endif()
