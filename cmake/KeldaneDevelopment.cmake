# Installs the files for developers of a daemon that the plug-in uses, or of a host that loads it: headers, libraries,
# pkg-config files, the pages about both, and an example of each.
foreach(folder platform log Common hosts/core)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/${folder}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/keldane/${folder}
          FILES_MATCHING PATTERN "*.h")
endforeach()
install(TARGETS keldane_log keldane_common keldane_host_core DESTINATION ${KELDANE_PRIVATE_LIBDIR})
foreach(name daemon host)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/keldane-${name}.pc.in ${PROJECT_BINARY_DIR}/keldane-${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/keldane-${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endforeach()
install(FILES docs/daemon.md docs/hosts.md DESTINATION ${CMAKE_INSTALL_DOCDIR}-dev)
install(DIRECTORY docs/examples/development/ DESTINATION ${CMAKE_INSTALL_DOCDIR}-dev/examples)
