# How everything here is compiled.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# -O3 buys nothing here, and GCC 12 then warns of copies that cannot happen.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

# Programs find the platform libraries beside themselves, built or installed.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

find_package(Threads REQUIRED)

set(TREESCOPE_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize= takes them")
if(TREESCOPE_SANITIZE)
  # Half-optimised: the sanitized builds run the whole test suite too.
  set(CMAKE_CXX_FLAGS_RELWITHDEBINFO "-O1 -g1")
  add_compile_options(-fsanitize=${TREESCOPE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TREESCOPE_SANITIZE})
endif()

if(TREESCOPE_BUILD_FUZZERS)
  # The fuzzer steers by what its inputs reach in our code.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Where the C library's time_t has 32 bits by default, ours has 64.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_definitions(_TIME_BITS=64 _FILE_OFFSET_BITS=64)
endif()

# The flags of our own code; targets from elsewhere do not link this.
add_library(treescope_warnings INTERFACE)
target_compile_options(treescope_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Checks the annotations of kstd/thread_annotations.h.
  target_compile_options(treescope_warnings INTERFACE -Wthread-safety)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 takes the sum of a literal and a string for overlapping copies
  # (https://gcc.gnu.org/PR105651).
  target_compile_options(treescope_warnings INTERFACE -Wno-restrict)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A folder's files as one unit are no header that others include.
  target_compile_options(treescope_warnings INTERFACE -Wno-subobject-linkage)
endif()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC notes what older releases than ours compiled differently.
  add_compile_options(-Wno-psabi)
endif()

# A run of the shell for one value takes a third longer where the C++ library has to
# be loaded and bound first. What unwinds the stack stays shared: the C library brings
# its own copy when a thread exits, and the two would have to fit.
include(CheckLinkerFlag)
check_linker_flag(CXX -static-libstdc++ TREESCOPE_HAS_STATIC_RUNTIME)
include(CMakeDependentOption)
cmake_dependent_option(TREESCOPE_STATIC_RUNTIME "Link the C++ library into what is installed" ON
  "TREESCOPE_HAS_STATIC_RUNTIME;NOT TREESCOPE_SANITIZE;NOT TREESCOPE_STATIC;TREESCOPE_PLATFORM STREQUAL bundled" OFF)

# How what is installed is linked.
add_library(treescope_linking INTERFACE)
if(TREESCOPE_STATIC_RUNTIME)
  target_link_options(treescope_linking INTERFACE
    -static-libstdc++ -shared-libgcc -Wl,--as-needed -Wl,--gc-sections)
elseif(TREESCOPE_STATIC)
  target_link_options(treescope_linking INTERFACE -static -Wl,--gc-sections)
elseif(CMAKE_BUILD_TYPE STREQUAL "MinSizeRel")
  target_link_options(treescope_linking INTERFACE -Wl,--as-needed -Wl,--gc-sections)
endif()
if(CMAKE_BUILD_TYPE STREQUAL "MinSizeRel")
  # What nothing uses is left out.
  add_compile_options(-ffunction-sections -fdata-sections)
endif()
