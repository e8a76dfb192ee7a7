# What is installed. Every path is relative to the prefix, so that an installation can be moved as a
# whole: into a toolchain's sysroot, onto a terminal, anywhere.
#
# | component   | holds                                           | Debian package |
# |-------------|-------------------------------------------------|----------------|
# | runtime     | the shared library with its soname              | libmavkit1     |
# | development | headers, static library, CMake and pkg-config   | libmavkit-dev  |
# | tools       | mavutil                                         | mavkit-tools   |
# | license     | the licence, which the packages keep elsewhere  |                |
include(CMakePackageConfigHelpers)

set(mavkit_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/mavkit)

foreach(header IN LISTS MAVKIT_PUBLIC_HEADERS)
  cmake_path(GET header PARENT_PATH directory)
  install(FILES ${PROJECT_SOURCE_DIR}/${header}
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${directory} COMPONENT development)
endforeach()

# Both kinds are mavkit::mavkit to their users. Each has a targets file of its own, and
# mavkit-config.cmake loads the one that is asked for.
function(mavkit_install target kind)
  string(TOLOWER ${kind} kind)
  install(TARGETS ${target} EXPORT mavkit-${kind}
      ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
              NAMELINK_COMPONENT development)
  install(EXPORT mavkit-${kind} NAMESPACE mavkit:: FILE mavkit-${kind}-targets.cmake
      DESTINATION ${mavkit_cmake_dir} COMPONENT development)
endfunction()
mavkit_install(mavkit ${MAVKIT_KIND})
if(TARGET mavkit_shared)
  mavkit_install(mavkit_shared SHARED)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/mavkit-config.cmake.in
    ${PROJECT_BINARY_DIR}/mavkit-config.cmake
    INSTALL_DESTINATION ${mavkit_cmake_dir}
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/mavkit-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/mavkit-config.cmake
              ${PROJECT_BINARY_DIR}/mavkit-config-version.cmake
    DESTINATION ${mavkit_cmake_dir} COMPONENT development)

cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
    BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig OUTPUT_VARIABLE mavkit_pc_prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/mavkit.pc.in ${PROJECT_BINARY_DIR}/mavkit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/mavkit.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT license)
if(TARGET mavutil)
  install(TARGETS mavutil RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
endif()

# The target uninstall removes what the last `cmake --install` of this build put in place.
if(PROJECT_IS_TOP_LEVEL)
  add_custom_target(uninstall VERBATIM COMMAND ${CMAKE_COMMAND}
      -DMANIFEST=${PROJECT_BINARY_DIR}/install_manifest.txt
      -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake)
endif()
