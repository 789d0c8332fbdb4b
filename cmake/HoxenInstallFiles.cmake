# Runs at install time for one package component (HOXEN_COMPONENT, Debian package
# HOXEN_DEB_PACKAGE); CMAKE_INSTALL_PREFIX is the prefix of this install. Installs the package's
# copyright and compressed changelog, and for the daemon the compressed man pages, the systemd
# unit and the defaults file. With the prefix /usr the unit goes to /lib/systemd/system and the
# defaults file to /etc/default, where the system looks; any other prefix (a staging tree)
# keeps both below the prefix and the unit names the daemon and defaults file found there.

function(hoxen_install_gzipped source destination name)
  file(MAKE_DIRECTORY ${HOXEN_STAGE_DIR})
  execute_process(COMMAND gzip -9nc ${source} OUTPUT_FILE ${HOXEN_STAGE_DIR}/${name}
                  RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "gzip of ${source} failed")
  endif()
  file(INSTALL DESTINATION ${destination} TYPE FILE FILES ${HOXEN_STAGE_DIR}/${name})
endfunction()

set(doc_dir ${CMAKE_INSTALL_PREFIX}/${HOXEN_DOCDIR}/${HOXEN_DEB_PACKAGE})
file(INSTALL DESTINATION ${doc_dir} TYPE FILE FILES ${HOXEN_SOURCE_DIR}/packaging/copyright)
file(MAKE_DIRECTORY ${HOXEN_STAGE_DIR}/${HOXEN_DEB_PACKAGE})
hoxen_install_gzipped(${HOXEN_STAGE_DIR}/changelog ${doc_dir} ${HOXEN_DEB_PACKAGE}/changelog.gz)

if(HOXEN_COMPONENT STREQUAL "daemon")
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(unit_dir /lib/systemd/system)
    set(default_dir /etc/default)
  else()
    set(unit_dir ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
    set(default_dir ${CMAKE_INSTALL_PREFIX}/etc/default)
  endif()

  hoxen_install_gzipped(${HOXEN_SOURCE_DIR}/docs/hoxen.8
                        ${CMAKE_INSTALL_PREFIX}/${HOXEN_MANDIR}/man8 hoxen.8.gz)
  hoxen_install_gzipped(${HOXEN_SOURCE_DIR}/docs/hoxen-pushserver.1
                        ${CMAKE_INSTALL_PREFIX}/${HOXEN_MANDIR}/man1 hoxen-pushserver.1.gz)

  file(INSTALL DESTINATION ${default_dir} TYPE FILE RENAME hoxen
       FILES ${HOXEN_SOURCE_DIR}/packaging/hoxen.default)

  file(READ ${HOXEN_SOURCE_DIR}/packaging/hoxen.service unit)
  string(REPLACE "/usr/sbin/hoxen" "${CMAKE_INSTALL_PREFIX}/${HOXEN_SBINDIR}/hoxen" unit "${unit}")
  string(REPLACE "/etc/default/hoxen" "${default_dir}/hoxen" unit "${unit}")
  file(WRITE ${HOXEN_STAGE_DIR}/hoxen.service "${unit}")
  file(INSTALL DESTINATION ${unit_dir} TYPE FILE FILES ${HOXEN_STAGE_DIR}/hoxen.service)
endif()
