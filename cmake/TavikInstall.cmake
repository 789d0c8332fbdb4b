# Installs tavik for other programs (component dev): the headers in include/tavik/, the static
# library, a CMake package (find_package(tavik CONFIG) gives tavik::tavik with its Threads and
# libuuid dependencies) and the pkg-config file tavik.pc. Every installed file locates the
# others relative to itself, so the installed tree may be moved as a whole.
include(CMakePackageConfigHelpers)

set(TAVIK_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tavik)
set(TAVIK_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

file(GLOB TAVIK_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tavik/*.h)
install(FILES ${TAVIK_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tavik COMPONENT dev)
install(TARGETS tavik EXPORT tavikTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(EXPORT tavikTargets NAMESPACE tavik:: DESTINATION ${TAVIK_CMAKE_DIR} COMPONENT dev)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/tavikConfig.cmake.in
  ${PROJECT_BINARY_DIR}/packaging/tavikConfig.cmake INSTALL_DESTINATION ${TAVIK_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/packaging/tavikConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/packaging/tavikConfig.cmake
              ${PROJECT_BINARY_DIR}/packaging/tavikConfigVersion.cmake
        DESTINATION ${TAVIK_CMAKE_DIR} COMPONENT dev)

# tavik.pc finds the prefix from its own folder: ${pcfiledir} up to the prefix.
file(RELATIVE_PATH TAVIK_PC_TO_PREFIX /prefix/${TAVIK_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" TAVIK_PC_TO_PREFIX ${TAVIK_PC_TO_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/cmake/tavik.pc.in ${PROJECT_BINARY_DIR}/packaging/tavik.pc
               @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/tavik.pc DESTINATION ${TAVIK_PKGCONFIG_DIR}
        COMPONENT dev)
