# Libraries, headers, CMake package and pkg-config files.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(
  TARGETS quen_shssim_lib quen_engines quen_centroiders quen_detector quen_stream
  EXPORT quen_shssim-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/quen_shssim)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/quen_shssim)
install(EXPORT quen_shssim-targets NAMESPACE quen:: DESTINATION ${package_dir})
configure_package_config_file(cmake/quen_shssim-config.cmake.in quen_shssim-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(quen_shssim-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/quen_shssim-config.cmake ${PROJECT_BINARY_DIR}/quen_shssim-config-version.cmake
              ${PROJECT_SOURCE_DIR}/cmake/Dependencies.cmake DESTINATION ${package_dir})

# Relative, so that an installed tree may be moved.
file(RELATIVE_PATH QUEN_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
foreach(name quen_shssim quen_engines quen_centroiders quen_detector quen_stream)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
