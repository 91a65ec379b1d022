# What `cmake --install` puts where: libraries, headers, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

set(package_directory ${CMAKE_INSTALL_LIBDIR}/cmake/businterfaces)
set(installed_targets businterfaces vqplatform)
if(BUSINTERFACES_PLATFORM STREQUAL vqhost)
    list(APPEND installed_targets vqhost)
endif()

install(TARGETS ${installed_targets} EXPORT businterfaces)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/businterfaces
    FILES_MATCHING PATTERN "*.h")
install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/businterfaces/platform
    FILES_MATCHING PATTERN "*.h")

install(EXPORT businterfaces NAMESPACE businterfaces:: FILE businterfacesTargets.cmake
    DESTINATION ${package_directory})
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/businterfacesConfig.cmake.in
    ${PROJECT_BINARY_DIR}/businterfacesConfig.cmake
    INSTALL_DESTINATION ${package_directory})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/businterfacesConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/businterfacesConfig.cmake
    ${PROJECT_BINARY_DIR}/businterfacesConfigVersion.cmake
    DESTINATION ${package_directory})

# The file finds its prefix from where it lies, so an installed tree can be moved.
if(BUSINTERFACES_PLATFORM STREQUAL vqhost)
    set(pkgconfig_directory ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
    file(RELATIVE_PATH pkgconfig_to_prefix ${pkgconfig_directory} ${CMAKE_INSTALL_PREFIX})
    configure_file(${CMAKE_CURRENT_LIST_DIR}/businterfaces.pc.in ${PROJECT_BINARY_DIR}/businterfaces.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/businterfaces.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endif()
