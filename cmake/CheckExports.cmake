# SPDX-License-Identifier: MIT
# Fails when the shared library exports an internal symbol, or stops exporting the public API.
#   cmake -DLIBRARY=<libOmbrel.so> [-DNM=<nm>] -P CheckExports.cmake
#   cmake -DSYMBOLS=<file of demangled names, one a line> -P CheckExports.cmake
# A symbol is internal when its own name (not its parameter types) lies in one of these namespaces of the
# library: the kernels of every ISA, the row coder, detail namespaces, operation-private namespaces and
# anonymous namespaces.
cmake_policy(VERSION 3.20)
set(internal_namespaces scalar sse2 avx2 avx512 blobrle detail arith "{anonymous}")
# A few names from each public header family: if one vanishes, visibility has hidden the API itself.
set(required_exports
  "ombrel::Buffer::Buffer" "ombrel::ROI::ROI" "ombrel::ROIRowIter::NextRow" "typeinfo for ombrel::Agent"
  "ombrel::handleAssert" "ombrel::SetAssertSink" "ombrel::GetEventLogger" "ombrel::SetIsaCap"
  "ombrel::QueryMachineValue" "ombrel::ArithFact" "ombrel::HistogramFact" "ombrel::MaskFact"
  "ombrel::BlobFact")

if(DEFINED SYMBOLS)
  file(STRINGS "${SYMBOLS}" lines)
else()
  if(NOT NM)
    set(NM nm)
  endif()
  execute_process(COMMAND "${NM}" -D --defined-only -C "${LIBRARY}" OUTPUT_VARIABLE output
                  RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${NM} failed on ${LIBRARY}")
  endif()
  string(REPLACE "\n" ";" lines "${output}")
endif()

list(JOIN internal_namespaces "|" alternatives)
string(REPLACE "{" "\\{" alternatives "${alternatives}")
string(REPLACE "}" "\\}" alternatives "${alternatives}")
set(internal_regex "ombrel::([A-Za-z0-9_]+::)*(${alternatives})::")

set(names "")
set(leaks "")
foreach(line IN LISTS lines)
  # nm prints "address type name"; a names file holds the name alone.
  if(line STREQUAL "")
    continue()
  endif()
  string(REGEX REPLACE "^[0-9a-fA-F]+ [A-Za-z] " "" name "${line}")
  string(REPLACE "(anonymous namespace)" "{anonymous}" own "${name}")
  string(REGEX REPLACE "\\(.*$" "" own "${own}")
  list(APPEND names "${own}")
  if(own MATCHES "${internal_regex}")
    list(APPEND leaks "${name}")
  endif()
endforeach()

list(LENGTH names count)
set(missing "")
foreach(required IN LISTS required_exports)
  list(FIND names "${required}" at)
  if(at EQUAL -1)
    list(APPEND missing "${required}")
  endif()
endforeach()

foreach(name IN LISTS leaks)
  message("internal symbol exported: ${name}")
endforeach()
foreach(name IN LISTS missing)
  message("public symbol not exported: ${name}")
endforeach()
list(LENGTH leaks leak_count)
list(LENGTH missing missing_count)
if(leaks OR missing)
  message(FATAL_ERROR "${count} exported symbols: ${leak_count} internal, ${missing_count} public ones missing")
endif()
message(STATUS "${count} exported symbols, none internal, none of the checked public ones missing")
