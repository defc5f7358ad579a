# SPDX-License-Identifier: MIT
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS Ombrel EXPORT OmbrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# The public headers the operations listed, each under include/ in its own ombrel/<folder>/. Every ombrel
# header a public one includes must be public too, or an installed consumer would not compile.
get_property(OMBREL_PUBLIC_HEADERS GLOBAL PROPERTY OMBREL_PUBLIC_HEADERS)
foreach(header IN LISTS OMBREL_PUBLIC_HEADERS)
  file(RELATIVE_PATH relative ${PROJECT_SOURCE_DIR} ${header})
  file(STRINGS ${header} includes REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"]ombrel/")
  foreach(line IN LISTS includes)
    string(REGEX REPLACE "^[^<\"]*[<\"]([^>\"]+)[>\"].*$" "\\1" included "${line}")
    if(NOT ${PROJECT_SOURCE_DIR}/${included} IN_LIST OMBREL_PUBLIC_HEADERS)
      message(FATAL_ERROR "Ombrel: public header ${relative} includes ${included}, which is not public")
    endif()
  endforeach()
  get_filename_component(folder ${relative} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder})
endforeach()
install(EXPORT OmbrelTargets NAMESPACE Ombrel:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrel)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OmbrelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OmbrelConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrel)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OmbrelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OmbrelConfig.cmake ${PROJECT_BINARY_DIR}/OmbrelConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrel)

configure_file(${PROJECT_SOURCE_DIR}/cmake/ombrel.pc.in ${PROJECT_BINARY_DIR}/ombrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ombrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
