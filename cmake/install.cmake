# What "cmake --install" puts where. Each component is a package, see debian.cmake.
install(TARGETS treescope treectl RUNTIME COMPONENT shell)
install(TARGETS modelsrvd RUNTIME COMPONENT server)
if(TREESCOPE_PLATFORM STREQUAL "bundled" AND NOT TREESCOPE_STATIC)
  foreach(library IN ITEMS krvkstd krvsyssrv libtreescope)
    install(TARGETS ${library} EXPORT treescopeTargets
      LIBRARY COMPONENT ${library} NAMELINK_COMPONENT development)
  endforeach()
  include(cmake/package.cmake)
  foreach(library IN ITEMS kstd utilsrv evtsrv modelsrv)
    install(DIRECTORY platform/${library}/include/
      DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/treescope COMPONENT development)
  endforeach()
  install(FILES platform/PROTOCOL.md
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/treescope COMPONENT development)
  install(FILES bindings/c/include/treescope.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

# treescope_install_page(PAGE COMPONENT): a manual page, in a package a compressed one.
function(treescope_install_page page component)
  set(file "${PROJECT_SOURCE_DIR}/man/${page}")
  string(REGEX REPLACE ".*\\." "" section ${page})
  if(TREESCOPE_PACKAGES)
    treescope_compress("${file}" "${PROJECT_BINARY_DIR}/man/${page}.gz")
    set(file "${PROJECT_BINARY_DIR}/man/${page}.gz")
  endif()
  install(FILES "${file}" DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
treescope_install_page(treescope.1 shell)
treescope_install_page(treectl.1 shell)
treescope_install_page(modelsrvd.8 server)

install(FILES tools/completion/treectl.bash RENAME treectl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT shell)
install(FILES tools/completion/_treectl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/${TREESCOPE_ZSH_DIR} COMPONENT shell)
install(FILES tools/completion/treectl.fish
  DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT shell)

if(TREESCOPE_SYSTEMD_UNIT_DIR)
  configure_file(packaging/modelsrvd.service.in ${PROJECT_BINARY_DIR}/modelsrvd.service @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/modelsrvd.service
    DESTINATION ${TREESCOPE_SYSTEMD_UNIT_DIR} COMPONENT server)
endif()

if(treescope_gateway)
  install(TARGETS modelgate RUNTIME COMPONENT gateway)
  install(PROGRAMS packaging/modelgate/modelgate-certificates
    DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT gateway)
  install(FILES packaging/modelgate/mosquitto.conf packaging/modelgate/acl
    DESTINATION ${CMAKE_INSTALL_DATADIR}/modelgate COMPONENT gateway)
  treescope_install_page(modelgate.1 gateway)
  treescope_install_page(modelgate-certificates.1 gateway)
  if(TREESCOPE_SYSTEMD_UNIT_DIR)
    foreach(unit IN ITEMS modelgate-export.service modelgate-view.service)
      configure_file(packaging/${unit}.in ${PROJECT_BINARY_DIR}/${unit} @ONLY)
      install(FILES ${PROJECT_BINARY_DIR}/${unit}
        DESTINATION ${TREESCOPE_SYSTEMD_UNIT_DIR} COMPONENT gateway)
    endforeach()
  endif()
endif()
