# What other projects find the installed libraries by: a CMake package, and pkg-config
# files for C++ and for C. They may be moved with the installation.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/treescope)
target_compile_features(krvkstd INTERFACE cxx_std_20)
install(EXPORT treescopeTargets NAMESPACE treescope::
  DESTINATION ${package_directory} COMPONENT development)
configure_package_config_file(
  packaging/treescopeConfig.cmake.in ${PROJECT_BINARY_DIR}/treescopeConfig.cmake
  INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/treescopeConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/treescopeConfig.cmake
  ${PROJECT_BINARY_DIR}/treescopeConfigVersion.cmake
  DESTINATION ${package_directory} COMPONENT development)

set(pc_directory ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TREESCOPE_PREFIX_FROM_PC /prefix/${pc_directory} /prefix)
foreach(package IN ITEMS treescope libtreescope)
  configure_file(packaging/${package}.pc.in ${PROJECT_BINARY_DIR}/${package}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${package}.pc
    DESTINATION ${pc_directory} COMPONENT development)
endforeach()
