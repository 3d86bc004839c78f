# SPDX-License-Identifier: Apache-2.0
# Installs the components filter, monitor, tools, ppd and development. Must be included last, because the rules check
# which programs are built.
find_program(CUPS_CONFIG cups-config)
if(NOT CUPS_SERVERBIN AND CUPS_CONFIG)
  execute_process(COMMAND ${CUPS_CONFIG} --serverbin OUTPUT_VARIABLE serverbin OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
if(NOT serverbin)
  set(serverbin /usr/lib/cups)
endif()
set(CUPS_SERVERBIN ${serverbin} CACHE PATH "The scheduler's programs; the filter is installed in its folder filter/")
# brenvellis_system_folder(VARIABLE NAME DEFAULT DOC): the folder that systemd calls NAME, or DEFAULT without systemd.
find_package(PkgConfig QUIET)
function(brenvellis_system_folder variable name default doc)
  if(PkgConfig_FOUND)
    pkg_get_variable(folder systemd ${name})
  endif()
  if(NOT folder)
    set(folder ${default})
  endif()
  set(${variable} ${folder} CACHE PATH ${doc})
endfunction()
brenvellis_system_folder(SYSTEMD_UNIT_DIR systemdsystemunitdir lib/systemd/system "systemd's units")
brenvellis_system_folder(SYSUSERS_DIR sysusersdir lib/sysusers.d "systemd's users")
set(filter_permissions OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The scheduler refuses a filter that is writable by others than its owner.
install(TARGETS commandtobrenvellis DESTINATION ${CUPS_SERVERBIN}/filter PERMISSIONS ${filter_permissions}
  COMPONENT filter)
install(FILES man/commandtobrenvellis.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT filter)

foreach(program brenvellis-monitor brenvellis-rasterdump brenvellis-simulator)
  if(NOT TARGET ${program})
    continue()
  endif()
  set(component tools)
  if(program STREQUAL brenvellis-monitor)
    set(component monitor)
  endif()
  install(TARGETS ${program} DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component})
  install(FILES man/${program}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ${component})

  # The program prints its completions, so these files need no program of the target processor during the build.
  set(completions ${CMAKE_BINARY_DIR}/completions)
  file(CONFIGURE OUTPUT ${completions}/bash/${program} CONTENT "source <(${program} --completion bash)\n")
  file(CONFIGURE OUTPUT ${completions}/zsh/_${program}
    CONTENT "#compdef ${program}\neval \"$(${program} --completion zsh)\"\n")
  file(CONFIGURE OUTPUT ${completions}/fish/${program}.fish CONTENT "${program} --completion fish | source\n")
  install(FILES ${completions}/bash/${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT ${component})
  install(FILES ${completions}/zsh/_${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions COMPONENT ${component})
  install(FILES ${completions}/fish/${program}.fish
    DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT ${component})
endforeach()

# Useful without the PPD of this tree.
install(PROGRAMS ppd/brenvellis-check-ppd DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ppd)
install(FILES man/brenvellis-check-ppd.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT ppd)
if(TARGET brenvellis_ppd)
  # In a folder that the scheduler searches, so that lpinfo -m lists it.
  install(FILES ${CMAKE_BINARY_DIR}/ppd/brenvell.ppd DESTINATION ${CMAKE_INSTALL_DATADIR}/ppd/brenvellis COMPONENT ppd)
  # The texts of the reasons, for drivers that use the PPD compiler.
  get_target_property(reason_texts brenvellis_ppd REASON_TEXTS)
  install(FILES ${reason_texts} DESTINATION ${CMAKE_INSTALL_DATADIR}/brenvellis/ppd COMPONENT ppd)
endif()

# The units in monitor/fleet have the path of a distribution's program. The prefix is known only at install time.
if(TARGET brenvellis-monitor)
  install(CODE "
    set(program \"${CMAKE_INSTALL_BINDIR}/brenvellis-monitor\")
    cmake_path(ABSOLUTE_PATH program BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
    file(READ \"${CMAKE_SOURCE_DIR}/monitor/fleet/brenvellis-monitor.service\" text)
    string(REPLACE \"/usr/bin/brenvellis-monitor\" \"\${program}\" text \"\${text}\")
    file(WRITE \"${CMAKE_BINARY_DIR}/brenvellis-monitor.service\" \"\${text}\")" COMPONENT monitor)
  install(FILES ${CMAKE_BINARY_DIR}/brenvellis-monitor.service monitor/fleet/brenvellis-monitor.timer
    DESTINATION ${SYSTEMD_UNIT_DIR} COMPONENT monitor)
  install(FILES monitor/fleet/brenvellis-monitor.sysusers DESTINATION ${SYSUSERS_DIR} RENAME brenvellis-monitor.conf
    COMPONENT monitor)
  install(FILES monitor/views/kiosk.html monitor/views/brenvellis-monitor-1.schema.json
    monitor/fleet/alerts.yml monitor/fleet/grafana-dashboard.json monitor/fleet/brenvellis-monitor.default
    DESTINATION ${CMAKE_INSTALL_DATADIR}/brenvellis COMPONENT monitor)
endif()

# The filter's library, for programs that query the printer without the filter.
include(CMakePackageConfigHelpers)
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/brenvellis)
install(TARGETS brenvellis EXPORT brenvellis ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
file(GLOB headers filter/*.h)
install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/brenvellis COMPONENT development)
target_include_directories(brenvellis INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_compile_features(brenvellis INTERFACE cxx_std_20)
install(EXPORT brenvellis NAMESPACE brenvellis:: FILE brenvellis-targets.cmake DESTINATION ${package}
  COMPONENT development)
configure_package_config_file(cmake/brenvellis-config.cmake.in brenvellis-config.cmake
  INSTALL_DESTINATION ${package})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/brenvellis-config-version.cmake
  COMPATIBILITY SameMinorVersion)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_BINDIR BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
  OUTPUT_VARIABLE to_bin)
cmake_path(GET to_bin PARENT_PATH to_prefix)
configure_file(cmake/brenvellis.pc.in brenvellis.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/brenvellis-config.cmake ${CMAKE_BINARY_DIR}/brenvellis-config-version.cmake
  DESTINATION ${package} COMPONENT development)
install(FILES ${CMAKE_BINARY_DIR}/brenvellis.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# CMake's install manifest does not contain DESTDIR, so record it.
install(CODE "
  set(of \"\")
  if(CMAKE_INSTALL_COMPONENT)
    set(of \"_\${CMAKE_INSTALL_COMPONENT}\")
  endif()
  file(WRITE \"${CMAKE_BINARY_DIR}/install_destdir\${of}.txt\" \"\$ENV{DESTDIR}\")" ALL_COMPONENTS)
add_custom_target(uninstall
  COMMAND ${CMAKE_COMMAND} -D BUILD=${CMAKE_BINARY_DIR} -P ${CMAKE_SOURCE_DIR}/cmake/Uninstall.cmake
  VERBATIM)
