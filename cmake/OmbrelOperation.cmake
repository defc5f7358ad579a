# SPDX-License-Identifier: MIT
# How an operation (or the framework) joins the build, in one call beside its code:
#
#   ombrel_add_operation(<name>
#     SOURCES <files...>                         baseline code: the agent, its factory, dispatch
#     KERNELS <isa> <files...> [<isa> <files...>] each group compiled with that level's flags only
#     TESTS <files...> [TEST_LIBS <targets...>] [OPENCV]
#     PUBLIC_HEADERS <headers...>                installed under include/, keeping ombrel/<folder>/
#     [DEFAULT_VISIBILITY <sources...>])
#
# Relative paths are taken from the directory of the file that calls. Every listed file must exist and every
# <isa> must be one of OMBREL_ISA_LEVELS: a typo stops the configure instead of silently dropping a file.
#
# The code goes into two libraries built from the same objects: the shared library Ombrel (hidden
# visibility; only what the headers mark OMBREL_API is exported) and the static archive OmbrelInternal,
# which the tests link whole so that they can reach kernels and planners the shared library keeps private.
#
# DEFAULT_VISIBILITY names sources whose headers do not mark their exports yet: they are compiled with
# default visibility so that programs linking the shared library still find them. Drop a file from it once
# its header carries OMBREL_API.

# Header names that are never part of the installed interface, whoever lists them.
set(OMBREL_INTERNAL_HEADER_REGEX "(_kernels|_simd|_body|_test)[^/]*\\.h$|/simd/|/kernel_family\\.h$|/region_clip\\.h$|/factory\\.h$")

# Absolute paths of `files` (relative to the calling list file), each checked to exist.
function(_ombrel_existing_files out what)
  set(result "")
  foreach(file IN LISTS ARGN)
    get_filename_component(path "${file}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_LIST_DIR}")
    if(NOT EXISTS "${path}" OR IS_DIRECTORY "${path}")
      message(FATAL_ERROR "Ombrel: ${what} file '${file}' does not exist (looked for ${path})")
    endif()
    list(APPEND result "${path}")
  endforeach()
  set(${out} "${result}" PARENT_SCOPE)
endfunction()

# Compiles `files` with the flags of `isa` into their own object library, linked into both libraries.
function(_ombrel_add_kernel_objects name isa)
  set(lib ombrel_kernels_${name}_${isa})
  add_library(${lib} OBJECT ${ARGN})
  set_target_properties(${lib} PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  target_link_libraries(${lib} PRIVATE ombrel_headers)
  target_compile_options(${lib} PRIVATE ${OMBREL_ISA_FLAGS_${isa}})
  ombrel_warnings(${lib})
  target_sources(Ombrel PRIVATE $<TARGET_OBJECTS:${lib}>)
  target_sources(OmbrelInternal PRIVATE $<TARGET_OBJECTS:${lib}>)
endfunction()

# KERNELS <isa> <files...> [<isa> <files...>]: one object library per level.
function(_ombrel_add_kernels name)
  set(isa "")
  set(groups "")
  foreach(item IN LISTS ARGN)
    get_filename_component(ext "${item}" LAST_EXT)
    if(ext STREQUAL "")
      if(NOT item IN_LIST OMBREL_ISA_LEVELS)
        message(FATAL_ERROR "Ombrel: operation '${name}' names unknown ISA '${item}' in KERNELS "
                            "(known: ${OMBREL_ISA_LEVELS})")
      endif()
      if(item IN_LIST groups)
        message(FATAL_ERROR "Ombrel: operation '${name}' lists ISA '${item}' twice in KERNELS")
      endif()
      set(isa "${item}")
      list(APPEND groups "${isa}")
      set(files_${isa} "")
    elseif(isa STREQUAL "")
      message(FATAL_ERROR "Ombrel: operation '${name}': KERNELS must start with an ISA name, not '${item}'")
    else()
      _ombrel_existing_files(path "kernel" "${item}")
      list(APPEND files_${isa} "${path}")
    endif()
  endforeach()
  foreach(isa IN LISTS groups)
    if(NOT files_${isa})
      message(FATAL_ERROR "Ombrel: operation '${name}' lists ISA '${isa}' in KERNELS without a file")
    endif()
    _ombrel_add_kernel_objects(${name} ${isa} ${files_${isa}})
  endforeach()
endfunction()

# Headers that are installed; each must be a public name.
function(ombrel_add_public_headers)
  _ombrel_existing_files(headers "public header" ${ARGN})
  foreach(header IN LISTS headers)
    if(header MATCHES "${OMBREL_INTERNAL_HEADER_REGEX}")
      message(FATAL_ERROR "Ombrel: '${header}' is an internal header and cannot be public")
    endif()
  endforeach()
  set_property(GLOBAL APPEND PROPERTY OMBREL_PUBLIC_HEADERS ${headers})
endfunction()

function(ombrel_add_operation name)
  cmake_parse_arguments(PARSE_ARGV 1 OP "OPENCV" ""
                        "SOURCES;KERNELS;TESTS;TEST_LIBS;PUBLIC_HEADERS;DEFAULT_VISIBILITY")
  if(OP_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "Ombrel: operation '${name}' has unexpected arguments: ${OP_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT OP_SOURCES AND NOT OP_KERNELS)
    message(FATAL_ERROR "Ombrel: operation '${name}' lists no SOURCES")
  endif()

  _ombrel_existing_files(sources "source" ${OP_SOURCES})
  target_sources(ombrel_objects PRIVATE ${sources})
  _ombrel_existing_files(default_visible "source" ${OP_DEFAULT_VISIBILITY})
  foreach(source IN LISTS default_visible)
    if(NOT source IN_LIST sources)
      message(FATAL_ERROR "Ombrel: operation '${name}': DEFAULT_VISIBILITY file '${source}' is not in SOURCES")
    endif()
  endforeach()
  if(default_visible)
    set_property(SOURCE ${default_visible} TARGET_DIRECTORY ombrel_objects APPEND PROPERTY
      COMPILE_OPTIONS -fvisibility=default)
  endif()
  _ombrel_add_kernels(${name} ${OP_KERNELS})
  ombrel_add_public_headers(${OP_PUBLIC_HEADERS})

  _ombrel_existing_files(tests "test" ${OP_TESTS})
  if(NOT OMBREL_BUILD_TESTS OR NOT tests)
    return()
  endif()
  set(test ${name}_tests)
  ombrel_add_test(${test} ${tests})
  if(OP_TEST_LIBS)
    target_link_libraries(${test} PRIVATE ${OP_TEST_LIBS})
  endif()
  if(OP_OPENCV)
    # OpenCV only cross-checks our results against an independent implementation; the library never links it.
    find_package(OpenCV REQUIRED COMPONENTS core imgproc)
    target_compile_definitions(${test} PRIVATE OMBREL_TEST_WITH_OPENCV)
    target_include_directories(${test} PRIVATE ${OpenCV_INCLUDE_DIRS})
    target_link_libraries(${test} PRIVATE ${OpenCV_LIBS})
  endif()
endfunction()
