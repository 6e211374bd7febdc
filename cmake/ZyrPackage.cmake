# What a consumer's find_package(ZyrLogger 2) and pkg-config zyrlogger read.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZyrLogger)
install(EXPORT ZyrLoggerTargets DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(cmake/ZyrLoggerConfig.cmake.in ${PROJECT_BINARY_DIR}/ZyrLoggerConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZyrLoggerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZyrLoggerConfig.cmake ${PROJECT_BINARY_DIR}/ZyrLoggerConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)

configure_file(cmake/zyrlogger.pc.in ${PROJECT_BINARY_DIR}/zyrlogger.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zyrlogger.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
