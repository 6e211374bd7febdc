# What a consumer's find_package(ZyrLogger 2) and pkg-config zyrlogger read.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZyrLogger)
foreach(library ZyrTools ZyrLogger)
    install(EXPORT ${library}Targets NAMESPACE ${library}:: DESTINATION ${package_dir} COMPONENT development)
endforeach()

configure_package_config_file(cmake/ZyrLoggerConfig.cmake.in ${PROJECT_BINARY_DIR}/ZyrLoggerConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZyrLoggerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZyrLoggerConfig.cmake ${PROJECT_BINARY_DIR}/ZyrLoggerConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT development)

# The prefix is told from where the file lies, so that an installation may be moved.
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/zyrlogger.pc.in ${PROJECT_BINARY_DIR}/zyrlogger.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zyrlogger.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
