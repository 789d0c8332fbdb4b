# Install rules for the daemon's system files, and the Debian packages CPack builds:
#   component daemon -> package hoxen:        sbin/hoxen, its systemd unit, the defaults file
#                                             (a conffile), the man page hoxen(8), and the
#                                             push server tool bin/hoxen-pushserver
#   component dev    -> package libtavik-dev: the tavik headers, libtavik.a, the CMake package
#                                             and tavik.pc
# Files are placed at install time (cmake/HoxenInstallFiles.cmake), so that the prefix given
# to cmake --install or to CPack decides where the unit and the defaults file go.
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(HOXEN_DEB_PACKAGE_dev libtavik-dev)
set(HOXEN_DEB_PACKAGE_daemon hoxen)
set(HOXEN_PACKAGE_COMPONENTS dev)
if(TARGET hoxen)
  list(APPEND HOXEN_PACKAGE_COMPONENTS daemon)
endif()

configure_file(${PROJECT_SOURCE_DIR}/packaging/changelog.in
               ${PROJECT_BINARY_DIR}/packaging/changelog @ONLY)
foreach(component ${HOXEN_PACKAGE_COMPONENTS})
  install(CODE "
    set(HOXEN_COMPONENT ${component})
    set(HOXEN_DEB_PACKAGE ${HOXEN_DEB_PACKAGE_${component}})
    set(HOXEN_SOURCE_DIR \"${PROJECT_SOURCE_DIR}\")
    set(HOXEN_STAGE_DIR \"${PROJECT_BINARY_DIR}/packaging\")
    set(HOXEN_SBINDIR \"${CMAKE_INSTALL_SBINDIR}\")
    set(HOXEN_MANDIR \"${CMAKE_INSTALL_MANDIR}\")
    set(HOXEN_DOCDIR \"${CMAKE_INSTALL_DATAROOTDIR}/doc\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/HoxenInstallFiles.cmake\")"
    COMPONENT ${component})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hoxen)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "hoxen maintainers <maintainers@hoxen.example.org>")
set(CPACK_PACKAGE_VENDOR "hoxen maintainers")
# CPack puts any summary it did not make up itself in front of each component's description;
# with its own default, the first line of a component's description is that package's synopsis.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
# The install step sees the real prefix (/usr) and writes below DESTDIR, so that the unit and
# the defaults file land in /lib/systemd/system and /etc/default.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${HOXEN_PACKAGE_COMPONENTS})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${CPACK_PACKAGE_CONTACT})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME ${HOXEN_DEB_PACKAGE_daemon})
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SHLIBDEPS ON)
# The daemon finds and stops processes through ps and mount (pidof is essential).
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS "mount, procps")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/conffiles)
set(CPACK_COMPONENT_DAEMON_DESCRIPTION "push-notification client for quillo storage boxes
hoxen keeps one TCP session to a push server, reports authentication results,
starts the box's integrity checker for every pushed message and reconnects
every second when the link drops. It watches the quillo storage mount and
stops the storage daemon and itself when the mount disappears.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${HOXEN_DEB_PACKAGE_dev})
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "uuid-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION "C++17 utility library of the hoxen push client (development files)
tavik supplies a text string and string array, containers, a scratch-string
pool, a TCP client socket, threads and locks, a logger, JSON, settings
files, date-time values and AES-128 ciphers. This package holds the
headers, the static library, a CMake package (tavik::tavik) and the
pkg-config file tavik.pc.")

include(CPack)
