# What `cmake --install` and the Debian package carry: the tool, the agent
# simulator and the event watcher (under names that say which product they
# belong to), the support-case capture script, the simulator's profiles, the
# manual pages and the simulator's documentation. Tests, benchmarks and fuzzers are never installed.
include(GNUInstallDirs)

set(ZX_DATA_DIR ${CMAKE_INSTALL_DATADIR}/zentrix)
set(ZX_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/zentrix)

install(TARGETS Zentrix RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# The build names stay as they are (tests and scripts use them); only the
# installed copies are renamed, so nothing clashes in a shared bin directory.
install(PROGRAMS $<TARGET_FILE:agent-sim> DESTINATION ${CMAKE_INSTALL_BINDIR}
        RENAME zentrix-agent-sim)
install(PROGRAMS $<TARGET_FILE:event-watch> DESTINATION ${CMAKE_INSTALL_BINDIR}
        RENAME zentrix-event-watch)
# It runs Zentrix and the simulator installed beside it.
install(PROGRAMS ${CMAKE_SOURCE_DIR}/tools/capture/zentrix-capture.sh DESTINATION ${CMAKE_INSTALL_BINDIR}
        RENAME zentrix-capture)
# install(PROGRAMS) copies files as they are; strip these two by hand when
# stripping was asked for (`cmake --install --strip`, and the package).
foreach(program zentrix-agent-sim zentrix-event-watch)
  install(CODE "
    if(CMAKE_INSTALL_DO_STRIP AND NOT \"${CMAKE_STRIP}\" STREQUAL \"\")
      execute_process(COMMAND \"${CMAKE_STRIP}\"
        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/${program}\")
    endif()")
endforeach()

# The fleet index: the command and its modules, which it finds relative to
# its own place (prefix/bin -> prefix/share/zentrix/fleet-index). The
# collection playbook and role come along as documentation.
install(PROGRAMS ${CMAKE_SOURCE_DIR}/tools/fleet-index/zentrix-fleet-index DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${CMAKE_SOURCE_DIR}/tools/fleet-index/zentrix_report.py ${CMAKE_SOURCE_DIR}/tools/fleet-index/fleet_index.py
        DESTINATION ${ZX_DATA_DIR}/fleet-index)
install(DIRECTORY ${CMAKE_SOURCE_DIR}/contrib/ansible DESTINATION ${ZX_DOC_DIR})

set(zx_profiles degraded empty typical)
list(TRANSFORM zx_profiles PREPEND ${CMAKE_SOURCE_DIR}/tools/agent-sim/profiles/)
list(TRANSFORM zx_profiles APPEND .json)
install(FILES ${zx_profiles} DESTINATION ${ZX_DATA_DIR}/profiles)
install(FILES ${CMAKE_SOURCE_DIR}/tools/agent-sim/README.md DESTINATION ${ZX_DOC_DIR}
        RENAME agent-sim.md)

# Manual pages are shipped compressed (-n: no name or time stamp inside, so
# the package is the same from one build to the next).
set(zx_man_dir ${CMAKE_BINARY_DIR}/man)
file(MAKE_DIRECTORY ${zx_man_dir})
set(zx_man_pages "")
foreach(page zentrix zentrix-agent-sim zentrix-capture zentrix-event-watch zentrix-fleet-index)
  add_custom_command(
    OUTPUT ${zx_man_dir}/${page}.1.gz
    COMMAND gzip -9 -n -c ${CMAKE_SOURCE_DIR}/docs/${page}.1 > ${zx_man_dir}/${page}.1.gz
    DEPENDS ${CMAKE_SOURCE_DIR}/docs/${page}.1
    VERBATIM)
  list(APPEND zx_man_pages ${zx_man_dir}/${page}.1.gz)
endforeach()
add_custom_target(zentrix-man ALL DEPENDS ${zx_man_pages})
# The program is called Zentrix; the link lets tools that match manual pages
# to programs by exact name find its page too.
file(CREATE_LINK zentrix.1.gz ${zx_man_dir}/Zentrix.1.gz SYMBOLIC)
install(FILES ${zx_man_pages} ${zx_man_dir}/Zentrix.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)

# Debian package: `cmake --build <dir> --target package` in a Release build.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zentrix)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Zentrix developers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "server inventory and health report as one HTML file")
set(CPACK_PACKAGE_DESCRIPTION
  "Zentrix takes a snapshot of a Linux server's identity, inventory and health\n\
(system board, operating system, fans, temperatures, power supplies, memory,\n\
processors, RAID, network adapters and the system event log) and writes it as\n\
one self-contained HTML report. Every value comes from the local management\n\
agent daemon over Unix-domain sockets.\n\
.\n\
The package also holds an agent simulator with sample server profiles, so a\n\
report can be made on a machine without the agent, and a watcher that prints\n\
the agent's events, and a fleet index that lists many servers' reports\n\
worst first, as a page, JSON or metrics.")
set(CPACK_DEBIAN_PACKAGE_NAME zentrix)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Zentrix developers")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# zentrix-fleet-index is a Python script; cpack adds the libraries' packages.
set(CPACK_DEBIAN_PACKAGE_DEPENDS python3)
# -autostart hands the report to xdg-open; everything else works without it.
set(CPACK_DEBIAN_PACKAGE_SUGGESTS xdg-utils)
set(CPACK_STRIP_FILES ON)
set(CPACK_SOURCE_GENERATOR "")
# A package made from a debug or sanitizer build would work but be slow and
# depend on the sanitizer runtimes; cpack refuses it (cmake/PackageCheck.cmake).
set(CPACK_ZENTRIX_BUILD_TYPE "${CMAKE_BUILD_TYPE}")
set(CPACK_ZENTRIX_SANITIZE "${ZENTRIX_SANITIZE}")
set(CPACK_PROJECT_CONFIG_FILE ${CMAKE_SOURCE_DIR}/cmake/PackageCheck.cmake)
include(CPack)
