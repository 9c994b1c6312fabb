# Installs the public headers in include/sylvora, both libraries, the command, the CMake package
# (with the shared sylvora::sylvora and the static sylvora::static) and the pkg-config file.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/sylvora)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

file(GLOB public_headers CONFIGURE_DEPENDS src/*.h)
install(FILES ${public_headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sylvora)
install(TARGETS sylvora_command)
install(TARGETS sylvora_static sylvora_shared EXPORT sylvora)
install(EXPORT sylvora NAMESPACE sylvora:: FILE sylvoraTargets.cmake DESTINATION ${package_dir})

configure_package_config_file(cmake/sylvoraConfig.cmake.in sylvoraConfig.cmake
    INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(sylvoraConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sylvoraConfig.cmake
              ${PROJECT_BINARY_DIR}/sylvoraConfigVersion.cmake
    DESTINATION ${package_dir})

# The prefix is relative to the .pc file, so that `cmake --install --prefix` and a moved
# installation work.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} OUTPUT_VARIABLE prefix_from_pkgconfig)
configure_file(cmake/sylvora.pc.in sylvora.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sylvora.pc DESTINATION ${pkgconfig_dir})
