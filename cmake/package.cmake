# The target `package`: Debian packages, one for each component. `scripts/package` builds them as they are shipped.
#
#   libcachet2      runtime       the shared library
#   libcachet-dev   development   headers, static library, CMake package, cachet.pc, examples
#   cachet-tools    tools         the programs in tools/, with what the system needs to run the manager
#
# They depend on what dpkg-shlibdeps finds that their programs are linked with. With SOURCE_DATE_EPOCH in the environment
# two runs make the same packages bit for bit.
set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_VENDOR "the cachet authors")
set(CPACK_PACKAGE_CONTACT "the cachet authors <cachet@localhost>")
# Empty: each component's description begins with its own summary.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/debian/finish.cmake)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(exactly "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libcachet${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "small relational database in System V shared memory
The processes of one host attach a database by a directory and a name, and
search and change its tables in place, without a server. Writers take turns
in transactions; readers take no lock and validate what they have read.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libcachet-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libcachet${PROJECT_VERSION_MAJOR} ${exactly}")
# Only users of the static library link Boost themselves.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS
    "libboost-thread-dev, libboost-system-dev, libboost-date-time-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "small relational database in shared memory (development)
Headers, the static library, and what CMake and pkg-config have to know, for
programs that use cachet; with examples in C and C++.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME cachet-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION database)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libcachet${PROJECT_VERSION_MAJOR} ${exactly}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS systemd)
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/cmake/debian/postinst ${PROJECT_SOURCE_DIR}/cmake/debian/prerm
    ${PROJECT_SOURCE_DIR}/cmake/debian/postrm)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "small relational database in shared memory (programs)
The programs of cachet, among them the manager, which makes the changes that
isolated clients ask for, as a service of systemd.")
if(TARGET ztmanager OR TARGET zt)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

# What every package of Debian has. Only components bring it: an installed tree needs no three copies.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} upper)
  set(folder ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
  install(FILES LICENSE DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL RENAME copyright)
  install(FILES CHANGELOG.md DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL RENAME changelog)
endforeach()
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libcachet-dev COMPONENT development EXCLUDE_FROM_ALL)

include(CPack)
