include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS tavcore EXPORT TavCoreTargets
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/tav DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT TavCoreTargets NAMESPACE TavCore::
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TavCore)

configure_package_config_file(cmake/TavCoreConfig.cmake.in
  "${CMAKE_CURRENT_BINARY_DIR}/TavCoreConfig.cmake"
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TavCore)
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/TavCoreConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/TavCoreConfig.cmake"
  "${CMAKE_CURRENT_BINARY_DIR}/TavCoreConfigVersion.cmake"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/TavCore)

configure_file(cmake/tavcore.pc.in "${CMAKE_CURRENT_BINARY_DIR}/tavcore.pc" @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/tavcore.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
