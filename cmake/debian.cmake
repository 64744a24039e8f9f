# The Debian packages that CPack makes of the components, see script/package. The same
# sources give the same bytes: all times are SOURCE_DATE_EPOCH.
find_program(TREESCOPE_GZIP gzip REQUIRED)
string(TIMESTAMP TREESCOPE_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(TREESCOPE_MAINTAINER "treescope developers <treescope@example.org>")

# treescope_compress(FILE COMPRESSED): compresses FILE with every build, without its time.
function(treescope_compress file compressed)
  get_filename_component(directory "${compressed}" DIRECTORY)
  get_filename_component(name "${compressed}" NAME)
  file(MAKE_DIRECTORY "${directory}")
  add_custom_command(OUTPUT "${compressed}" DEPENDS "${file}" VERBATIM
    COMMAND sh -c "exec \"$1\" -9n <\"$2\" >\"$3\"" sh "${TREESCOPE_GZIP}" "${file}" "${compressed}")
  string(MAKE_C_IDENTIFIER "compressed_${name}" target)
  add_custom_target(${target} ALL DEPENDS "${compressed}")
endfunction()

set(debian "${PROJECT_SOURCE_DIR}/packaging/debian")
set(documents "${PROJECT_BINARY_DIR}/debian")
configure_file("${debian}/changelog.in" "${documents}/changelog" @ONLY)
treescope_compress("${documents}/changelog" "${documents}/changelog.Debian.gz")
treescope_compress("${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${documents}/changelog.gz")

# treescope_package(COMPONENT NAME SECTION [ALL | LIBRARY] SUMMARY LINE TEXT LINES
#                   [DEPENDS COMPONENT ...] [PACKAGES TEXT] [RECOMMENDS TEXT] [SUGGESTS TEXT]
#                   [SCRIPTS FILE ...])
#
# The component as the package NAME. ALL: for every architecture. It depends on the packages of
# the components DEPENDS in the same version, on PACKAGES, and on what its programs load.
function(treescope_package component name section)
  cmake_parse_arguments(arg "ALL;LIBRARY" "SUMMARY;TEXT;PACKAGES;RECOMMENDS;SUGGESTS" "DEPENDS;SCRIPTS" ${ARGN})
  install(FILES
    "${debian}/copyright" "${documents}/changelog.gz" "${documents}/changelog.Debian.gz"
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component})
  string(TOUPPER "${component}" upper)
  set(prefix CPACK_DEBIAN_${upper})
  macro(treescope_set variable)
    set(${variable} "${ARGN}" PARENT_SCOPE)
  endmacro()
  treescope_set(${prefix}_PACKAGE_NAME ${name})
  treescope_set(${prefix}_PACKAGE_SECTION ${section})
  treescope_set(${prefix}_PACKAGE_DEPENDS "${arg_PACKAGES}")
  treescope_set(${prefix}_PACKAGE_RECOMMENDS "${arg_RECOMMENDS}")
  treescope_set(${prefix}_PACKAGE_SUGGESTS "${arg_SUGGESTS}")
  # The first line is the summary.
  treescope_set(${prefix}_DESCRIPTION "${arg_SUMMARY}\n${arg_TEXT}")
  treescope_set(CPACK_COMPONENT_${upper}_DEPENDS ${arg_DEPENDS})
  if(arg_ALL)
    treescope_set(${prefix}_PACKAGE_ARCHITECTURE all)
    treescope_set(${prefix}_PACKAGE_SHLIBDEPS OFF)
  endif()
  list(TRANSFORM arg_SCRIPTS PREPEND "${debian}/${name}/")
  if(arg_LIBRARY)
    # Debian wants a trigger for the loader's cache; CPack adds scripts that update it at once.
    list(APPEND arg_SCRIPTS "${debian}/libraries/triggers")
  endif()
  treescope_set(${prefix}_PACKAGE_CONTROL_EXTRA ${arg_SCRIPTS})
  list(APPEND CPACK_COMPONENTS_ALL ${component})
  set(CPACK_COMPONENTS_ALL "${CPACK_COMPONENTS_ALL}" PARENT_SCOPE)
endfunction()

set(CPACK_COMPONENTS_ALL)
treescope_package(shell treescope utils
  SUMMARY "shell and script tool for the data trees of model servers"
  TEXT "A model server publishes a tree of values of a running device. treescope
finds the servers on the machine, connects to one and lets a person walk its
tree like a file system, read and write values and watch them change. treectl
does the same for scripts."
  DEPENDS krvkstd krvsyssrv
  RECOMMENDS "man-db"
  SUGGESTS "modelsrvd, bash-completion")
treescope_package(server modelsrvd utils
  SUMMARY "model server for this machine or a described tree"
  TEXT "A model server publishes a tree of values that programs on the same machine
read, write and watch. This one publishes the machine itself, a tree that a
file describes, or a synthetic tree for measurements. It runs as a service
that publishes the machine as Model_host to root and the members of a group."
  DEPENDS krvkstd krvsyssrv
  PACKAGES "adduser"
  RECOMMENDS "treescope"
  SCRIPTS postinst prerm postrm)
treescope_package(krvkstd libkrvkstd0 libs LIBRARY
  SUMMARY "libraries for model servers - mutex"
  TEXT "The recursive mutex that libkrvsyssrv and its programs share.")
treescope_package(krvsyssrv libkrvsyssrv4 libs LIBRARY
  SUMMARY "libraries for model servers - event ports and models"
  TEXT "Event ports over named pipes, and the trees of values that servers publish
on them: both the servers' and the clients' side, for C++."
  DEPENDS krvkstd)
treescope_package(libtreescope libtreescope0 libs LIBRARY
  SUMMARY "libraries for model servers - interface for C"
  TEXT "Clients and servers of live data trees for programs in C, and for what can
call C."
  DEPENDS krvkstd krvsyssrv)
treescope_package(python python3-treescope python ALL
  SUMMARY "model servers and their clients in Python"
  TEXT "The Python package treescope: clients and servers of live data trees, also
for asyncio."
  DEPENDS libtreescope
  PACKAGES "python3 (>= 3.11)"
  SCRIPTS postinst prerm)
treescope_package(development treescope-dev libdevel
  SUMMARY "libraries for model servers - development files"
  TEXT "The headers of the libraries for C++ and C, their CMake and pkg-config files,
the description of the protocol, a guide, and examples."
  DEPENDS krvkstd krvsyssrv libtreescope)

if(treescope_gateway)
  treescope_package(gateway modelgate net
    SUMMARY "model servers of other devices over MQTT"
    TEXT "On a device, modelgate publishes the model servers at an MQTT 5 broker. On
another machine it makes each of them a local model server again, for the
programs that use one of their own machine. A configuration for Mosquitto with
client certificates and rights is included."
    DEPENDS krvkstd krvsyssrv
    PACKAGES "adduser"
    RECOMMENDS "openssl"
    SUGGESTS "mosquitto, modelsrvd, treescope"
    SCRIPTS postinst prerm postrm)
  install(FILES "${debian}/modelgate/README.Debian"
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/modelgate COMPONENT gateway)
endif()

install(FILES "${debian}/modelsrvd/README.Debian"
  DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/modelsrvd COMPONENT server)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/treescope-dev COMPONENT development)
install(FILES doc/guide.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/treescope-dev COMPONENT development)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME treescope)
set(CPACK_PACKAGE_CONTACT "${TREESCOPE_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
include(CPack)
