# The installed package: headers, both libraries, cachetConfig.cmake with cachet::cachet and cachet::cachet_static,
# cachet.pc and cachet(3). Everything in it is relative to the prefix, so an installed tree may be moved.
#
# What a running program needs is the component `runtime`, what a compiler needs `development`.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

set(CACHET_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/cachet)

# cachet.h is for everybody; the others, found as <cachet/...>, are for programs built on the library's internals.
file(GLOB CACHET_INTERNAL_HEADERS CONFIGURE_DEPENDS include/*.h)
list(FILTER CACHET_INTERNAL_HEADERS EXCLUDE REGEX "/cachetx?\\.h$")
file(GLOB CACHET_PUBLIC_HEADERS CONFIGURE_DEPENDS include/cachet.h include/cachetx.h)
install(FILES ${CACHET_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES ${CACHET_INTERNAL_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/cachet)

install(TARGETS cachet cachet_static EXPORT cachetTargets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
install(EXPORT cachetTargets NAMESPACE cachet:: DESTINATION ${CACHET_CMAKE_DIR})

write_basic_package_version_file(${PROJECT_BINARY_DIR}/cachetConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/cachetConfig.cmake ${PROJECT_BINARY_DIR}/cachetConfigVersion.cmake
        DESTINATION ${CACHET_CMAKE_DIR})

file(RELATIVE_PATH CACHET_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" CACHET_PREFIX_FROM_PC ${CACHET_PREFIX_FROM_PC})
configure_file(cmake/cachet.pc.in cachet.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cachet.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES docs/cachet.3 DESTINATION ${CMAKE_INSTALL_MANDIR}/man3)

add_custom_target(uninstall COMMAND ${CMAKE_COMMAND} -P ${PROJECT_SOURCE_DIR}/cmake/uninstall.cmake
                  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} VERBATIM)
