# Installs what find_package() and pkg-config need to find a library of this project.
include(CMakePackageConfigHelpers)

# install_package(NAME <name> DESCRIPTION <text> REQUIRES <pkg-config modules>
#                 COMPATIBILITY <which versions will do, as CMake says it>)
# Expects cmake/<name>Config.cmake.in and an export set called <name>.
function(install_package)
  cmake_parse_arguments(PARSE_ARGV 0 package "" "NAME;DESCRIPTION;REQUIRES;COMPATIBILITY" "")
  set(directory "${CMAKE_INSTALL_LIBDIR}/cmake/${package_NAME}")
  configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/${package_NAME}Config.cmake.in"
    "${CMAKE_CURRENT_BINARY_DIR}/${package_NAME}Config.cmake"
    INSTALL_DESTINATION "${directory}")
  write_basic_package_version_file(
    "${CMAKE_CURRENT_BINARY_DIR}/${package_NAME}ConfigVersion.cmake"
    COMPATIBILITY ${package_COMPATIBILITY})
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${package_NAME}Config.cmake"
                "${CMAKE_CURRENT_BINARY_DIR}/${package_NAME}ConfigVersion.cmake"
          DESTINATION "${directory}")
  install(EXPORT ${package_NAME} NAMESPACE ${package_NAME}:: DESTINATION "${directory}"
          FILE ${package_NAME}Targets.cmake)

  file(RELATIVE_PATH prefix_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" prefix_from_pkgconfig "${prefix_from_pkgconfig}")
  configure_file("${PROJECT_SOURCE_DIR}/cmake/package.pc.in"
                 "${CMAKE_CURRENT_BINARY_DIR}/${package_NAME}.pc" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${package_NAME}.pc"
          DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
endfunction()
