# What an installation holds, by component: runtime (the library and its proxy helper), development (headers, CMake package,
# pkg-config file) and command (the command with its man page). All of it may be moved afterwards.
include(CMakePackageConfigHelpers)

install(TARGETS tessel EXPORT tessel-targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
if(TARGET tessel_proxy_helper)
  install(TARGETS tessel_proxy_helper RUNTIME DESTINATION ${CMAKE_INSTALL_LIBDIR}/tessel COMPONENT runtime)
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/tessel
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development FILES_MATCHING PATTERN "*.h")

set(TESSEL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tessel)
install(EXPORT tessel-targets NAMESPACE tessel:: DESTINATION ${TESSEL_PACKAGE_DIR} COMPONENT development)
configure_package_config_file(cmake/tessel-config.cmake.in ${PROJECT_BINARY_DIR}/tessel-config.cmake
  INSTALL_DESTINATION ${TESSEL_PACKAGE_DIR})
# Before 1.0 a new minor number may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tessel-config-version.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tessel-config.cmake ${PROJECT_BINARY_DIR}/tessel-config-version.cmake
  DESTINATION ${TESSEL_PACKAGE_DIR} COMPONENT development)

file(RELATIVE_PATH TESSEL_PC_TO_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" TESSEL_PC_TO_PREFIX ${TESSEL_PC_TO_PREFIX})
configure_file(cmake/tessel.pc.in ${PROJECT_BINARY_DIR}/tessel.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tessel.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(TARGET tessel_command)
  file(RELATIVE_PATH TESSEL_BIN_TO_LIB /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(tessel_command PROPERTIES INSTALL_RPATH "$ORIGIN/${TESSEL_BIN_TO_LIB}")
  install(TARGETS tessel_command RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT command)
  install(FILES ${PROJECT_SOURCE_DIR}/docs/man/tessel.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT command)
endif()
