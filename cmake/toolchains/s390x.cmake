set(TREESCOPE_TRIPLET s390x-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(TREESCOPE_EMULATOR qemu-s390x -L /usr/s390x-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
