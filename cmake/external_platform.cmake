# The platform libraries of the installation at TREESCOPE_PLATFORM instead of
# this tree's own.
if(NOT IS_DIRECTORY "${TREESCOPE_PLATFORM}")
  message(FATAL_ERROR "TREESCOPE_PLATFORM is neither 'bundled' nor a directory: ${TREESCOPE_PLATFORM}")
endif()

find_path(TREESCOPE_PLATFORM_HEADERS modelsrv/model_root.h
  PATHS "${TREESCOPE_PLATFORM}/${CMAKE_INSTALL_INCLUDEDIR}"
  PATH_SUFFIXES treescope NO_DEFAULT_PATH REQUIRED)

# An installation for running alone has no names for the linker but the sonames.
find_library(TREESCOPE_PLATFORM_KSTD NAMES krvkstd libkrvkstd.so.0
  PATHS "${TREESCOPE_PLATFORM}/${CMAKE_INSTALL_LIBDIR}" "${TREESCOPE_PLATFORM}/lib" NO_DEFAULT_PATH REQUIRED)
find_library(TREESCOPE_PLATFORM_SYSSRV NAMES krvsyssrv libkrvsyssrv.so.4
  PATHS "${TREESCOPE_PLATFORM}/${CMAKE_INSTALL_LIBDIR}" "${TREESCOPE_PLATFORM}/lib" NO_DEFAULT_PATH REQUIRED)

add_library(platform_kstd SHARED IMPORTED GLOBAL)
set_target_properties(platform_kstd PROPERTIES
  IMPORTED_LOCATION "${TREESCOPE_PLATFORM_KSTD}"
  INTERFACE_INCLUDE_DIRECTORIES "${TREESCOPE_PLATFORM_HEADERS}")
add_library(platform_syssrv SHARED IMPORTED GLOBAL)
set_target_properties(platform_syssrv PROPERTIES
  IMPORTED_LOCATION "${TREESCOPE_PLATFORM_SYSSRV}"
  INTERFACE_INCLUDE_DIRECTORIES "${TREESCOPE_PLATFORM_HEADERS}")
target_link_libraries(platform_syssrv INTERFACE platform_kstd Threads::Threads)
add_library(platform_inside ALIAS platform_syssrv)

# What is installed finds them where they are.
get_filename_component(platform_libraries "${TREESCOPE_PLATFORM_SYSSRV}" DIRECTORY)
list(APPEND CMAKE_INSTALL_RPATH "${platform_libraries}")
