# The packages, made of what Install.cmake installs.
set(CPACK_PACKAGE_NAME mavkit)
set(CPACK_PACKAGE_VENDOR "The mavkit authors")
set(CPACK_PACKAGE_CONTACT "The mavkit authors <mavkit@example.org>")
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR TGZ DEB)

# The tarball: one folder with bin, include and lib, to be unpacked wherever it is wanted.
set(mavkit_architecture ${CMAKE_SYSTEM_PROCESSOR})
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(mavkit_architecture ${CMAKE_LIBRARY_ARCHITECTURE})
endif()
set(CPACK_PACKAGE_FILE_NAME mavkit-${PROJECT_VERSION}-${mavkit_architecture})

# The Debian packages, one a component.
set(mavkit_runtime_package libmavkit${PROJECT_VERSION_MAJOR})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(mavkit_libc "")
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${CMAKE_SYSTEM_PROCESSOR})
  # dpkg-shlibdeps needs the target's own packages installed, which a cross build does without.
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
  set(mavkit_libc "libc6, libstdc++6")
endif()

# mavkit_debian(component package section depends text): the licence goes where Debian looks for it,
# and a plain `cmake --install` leaves that copy out.
function(mavkit_debian component package section depends text)
  string(TOUPPER ${component} key)
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
      RENAME copyright COMPONENT ${component} EXCLUDE_FROM_ALL)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${package} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${text}" PARENT_SCOPE)
  set(CPACK_COMPONENTS_ALL ${CPACK_COMPONENTS_ALL} ${component} PARENT_SCOPE)
endfunction()

set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "toolkit of the resident applications of a terminal")
set(mavkit_about
"Traces and logs, message queues and shared memory between processes,
packed-BCD times and calendar arithmetic, encodings, and helpers for files
and directories.")
set(mavkit_exact "")
set(CPACK_COMPONENTS_ALL "")
if(TARGET mavkit_shared)
  set(mavkit_runtime_package libmavkit${PROJECT_VERSION_MAJOR})
  set(mavkit_exact "${mavkit_runtime_package} (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
  mavkit_debian(runtime ${mavkit_runtime_package} libs "${mavkit_libc}" "${mavkit_about}")
endif()
mavkit_debian(development libmavkit-dev libdevel "${mavkit_exact}" "${mavkit_about}
.
These are the headers, the static library, and what CMake and pkg-config
need to find them.")
if(TARGET mavutil)
  mavkit_debian(tools mavkit-tools utils "${mavkit_libc}" "${mavkit_about}
.
This is mavutil, the command that shows and decodes what the processes of
a terminal exchange.")
endif()

include(CPack)
