# Where everything goes: cmake --install BUILD --component daemon, client or dev.
#
# The daemon looks for its engine in ../lib and for its kernel module in ../modules below its working directory, so the
# three lie beside each other in a folder of their own. What a running system owns (/etc, /var, the units' folders)
# follows the prefix as GNUInstallDirs has it: /etc and /var for the prefix /usr.
include(GNUInstallDirs)

set(brumecpd_bin ${CMAKE_INSTALL_FULL_BINDIR})
set(brumecpd_home ${CMAKE_INSTALL_PREFIX}/lib/brumecpd)
set(brumecpd_state ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/brumecpd)
set(brumecpd_logs ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/log/brumecpd)
set(brumecpd_config ${CMAKE_INSTALL_FULL_SYSCONFDIR})
set(brumecpd_examples ${CMAKE_INSTALL_FULL_DOCDIR}/examples)

install(TARGETS brumecpd RUNTIME DESTINATION lib/brumecpd/bin COMPONENT daemon)
install(TARGETS cvcp_u LIBRARY DESTINATION lib/brumecpd/lib COMPONENT daemon)
install(FILES engine/openrpc-flows.json DESTINATION lib/brumecpd/lib COMPONENT daemon)
install(DIRECTORY DESTINATION lib/brumecpd/modules COMPONENT daemon)
install(TARGETS brumectl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT client)

# A link and not a script that changes the folder: paths on the command line mean the caller's folder.
set(packaging_out ${PROJECT_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${packaging_out}/sbin)
file(CREATE_LINK ../lib/brumecpd/bin/brumecpd ${packaging_out}/sbin/brumecpd SYMBOLIC)
install(FILES ${packaging_out}/sbin/brumecpd DESTINATION ${CMAKE_INSTALL_SBINDIR} COMPONENT daemon)

# Name of the file in packaging/system, where it goes, what it is called there.
set(system_files
    "brumecpd.service|lib/systemd/system|brumecpd.service"
    "sysusers.conf|lib/sysusers.d|brumecpd.conf"
    "tmpfiles.conf|lib/tmpfiles.d|brumecpd.conf"
    "default|${brumecpd_config}/default|brumecpd"
    "logrotate|${brumecpd_config}/brumecpd|logrotate.conf"
    "brumecpd-logrotate.service|lib/systemd/system|brumecpd-logrotate.service"
    "brumecpd-logrotate.timer|lib/systemd/system|brumecpd-logrotate.timer"
    "brumecpd-evidence.service|lib/systemd/system|brumecpd-evidence.service"
    "brumecpd-evidence.timer|lib/systemd/system|brumecpd-evidence.timer"
    "brumecpd-ipfix.service|lib/systemd/system|brumecpd-ipfix.service")
foreach(entry IN LISTS system_files)
    string(REPLACE "|" ";" entry "${entry}")
    list(GET entry 0 source)
    list(GET entry 1 folder)
    list(GET entry 2 name)
    configure_file(packaging/system/${source}.in ${packaging_out}/system/${source} @ONLY)
    install(FILES ${packaging_out}/system/${source} DESTINATION ${folder} RENAME ${name} COMPONENT daemon)
endforeach()
install(DIRECTORY DESTINATION ${brumecpd_config}/brumecpd COMPONENT daemon)

# Nobody installs what a sanitizer watches, and asking that for texts may end in the sanitizer's way.
if(BRUMECPD_SANITIZER STREQUAL "none")
    include(cmake/ManPages.cmake)
    include(cmake/Completions.cmake)
endif()

include(cmake/InstallDev.cmake)
