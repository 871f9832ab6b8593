# install() and find_package(KivBase CONFIG).
include(CMakePackageConfigHelpers)

install(TARGETS kivplatform KivBase EXPORT KivBaseTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY kiv/kivplatform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivplatform FILES_MATCHING PATTERN "*.h")
install(DIRECTORY kiv/kivbasedata/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivbasedata FILES_MATCHING PATTERN "*.h")
install(EXPORT KivBaseTargets NAMESPACE KivBase:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KivBase)

configure_package_config_file(cmake/KivBaseConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/KivBaseConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KivBase)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/KivBaseConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/KivBaseConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/KivBaseConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/KivBase)
