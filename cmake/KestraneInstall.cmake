# SPDX-FileCopyrightText: 2026 The Kestrane authors
# SPDX-License-Identifier: Apache-2.0

# The core as a package, so that another project can find_package(Kestrane) and link
# Kestrane::kestrane_core; its headers are included from the root, as they are here.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

add_library(Kestrane::kestrane_core ALIAS kestrane_core)
install(TARGETS kestrane_core kestrane_flags EXPORT KestraneTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/core
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kestrane FILES_MATCHING PATTERN "*.h")

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Kestrane)
install(EXPORT KestraneTargets NAMESPACE Kestrane:: DESTINATION ${package_folder})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/KestraneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/KestraneConfig.cmake INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/KestraneConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/KestraneConfig.cmake
  ${PROJECT_BINARY_DIR}/KestraneConfigVersion.cmake DESTINATION ${package_folder})
