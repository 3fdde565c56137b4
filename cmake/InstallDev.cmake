# What engine authors need, as component `dev`: the headers, how CMake and pkg-config find them, the checker, and an
# engine to begin with. Everything but the checker is the same on all machines.
include_guard(GLOBAL)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# Of the boundary, not of the daemon: the first number changes when libraries have to be built anew.
set(engine_api_version 1.0.0)
set(dev_out ${PROJECT_BINARY_DIR}/dev)
set(cmake_folder ${CMAKE_INSTALL_DATAROOTDIR}/cmake/brumecpd)
set(pkgconfig_folder ${CMAKE_INSTALL_DATAROOTDIR}/pkgconfig)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/brumecpd-config.cmake.in ${dev_out}/brumecpd-config.cmake
    INSTALL_DESTINATION ${cmake_folder}
    PATH_VARS CMAKE_INSTALL_INCLUDEDIR
    NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${dev_out}/brumecpd-config-version.cmake
    VERSION ${engine_api_version}
    COMPATIBILITY SameMajorVersion
    ARCH_INDEPENDENT)
configure_file(${CMAKE_CURRENT_LIST_DIR}/brumecpd-engine.pc.in ${dev_out}/brumecpd-engine.pc @ONLY)

install(DIRECTORY include/brumecpd DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(FILES ${dev_out}/brumecpd-config.cmake ${dev_out}/brumecpd-config-version.cmake
    DESTINATION ${cmake_folder} COMPONENT dev)
install(FILES ${dev_out}/brumecpd-engine.pc DESTINATION ${pkgconfig_folder} COMPONENT dev)
install(TARGETS brumecp_engine_check RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dev)
install(DIRECTORY examples/engine DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples COMPONENT dev)
install(FILES docs/engine.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT dev)
