# cmake --install gives headers, library, CMake package, pkg-config file and documents; the command and
# the Python module install themselves in their own folders. Each belongs to a component, of which
# CalcutPackages.cmake makes Debian packages.
include(CMakePackageConfigHelpers)

set(calcut_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/calcut)

install(TARGETS calcut EXPORT calcutTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/calcut DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        COMPONENT development)
install(EXPORT calcutTargets NAMESPACE calcut:: DESTINATION ${calcut_package_dir} COMPONENT development)

configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/calcutConfig.cmake.in ${PROJECT_BINARY_DIR}/calcutConfig.cmake
  INSTALL_DESTINATION ${calcut_package_dir})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/calcutConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/calcutConfig.cmake ${PROJECT_BINARY_DIR}/calcutConfigVersion.cmake
        DESTINATION ${calcut_package_dir} COMPONENT development)

# The way from the pkg-config file up to the prefix, so that the tree can be moved.
file(RELATIVE_PATH calcut_pc_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(${PROJECT_SOURCE_DIR}/cmake/calcut.pc.in ${PROJECT_BINARY_DIR}/calcut.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/calcut.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

if(CALCUT_BUILD_TOOLS)
  # The help and the man pages cite these.
  file(GLOB documents ${PROJECT_SOURCE_DIR}/docs/*.md)
  install(FILES ${documents} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/calcut COMPONENT command)
endif()
