# SPDX-License-Identifier: MIT
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS Ombrel EXPORT OmbrelTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Public headers keep their folder under include/ombrel; tests and kernel internals stay out.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/ombrel/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ombrel
  FILES_MATCHING PATTERN "*.h"
  PATTERN "*_test*" EXCLUDE PATTERN "*_kernels*" EXCLUDE PATTERN "detail" EXCLUDE)
install(EXPORT OmbrelTargets NAMESPACE Ombrel:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrel)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/OmbrelConfig.cmake.in
  ${PROJECT_BINARY_DIR}/OmbrelConfig.cmake INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrel)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/OmbrelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/OmbrelConfig.cmake ${PROJECT_BINARY_DIR}/OmbrelConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Ombrel)

configure_file(${PROJECT_SOURCE_DIR}/cmake/ombrel.pc.in ${PROJECT_BINARY_DIR}/ombrel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/ombrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
