# Debian's cross compiler for TREESCOPE_TRIPLET, whose programs are started with TREESCOPE_EMULATOR
# in tests. The C and C++ libraries are those of the compiler's packages.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_CXX_COMPILER ${TREESCOPE_TRIPLET}-g++)
set(CMAKE_C_COMPILER ${TREESCOPE_TRIPLET}-gcc)

set(TREESCOPE_TARGET_ROOT /usr/${TREESCOPE_TRIPLET})
set(CMAKE_CROSSCOMPILING_EMULATOR ${TREESCOPE_EMULATOR})

# Libraries are the target's; what has no machine code (nlohmann-json) may be this system's.
set(CMAKE_FIND_ROOT_PATH ${TREESCOPE_TARGET_ROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
