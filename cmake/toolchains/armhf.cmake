set(TREESCOPE_TRIPLET arm-linux-gnueabihf)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(TREESCOPE_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
