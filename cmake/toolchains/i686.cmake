# 32 bits on this machine, which runs the programs itself: its kernel has what emulators
# lack, such as robust mutexes.
set(TREESCOPE_TRIPLET i686-linux-gnu)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(TREESCOPE_EMULATOR /usr/i686-linux-gnu/lib/ld-linux.so.2 --library-path /usr/i686-linux-gnu/lib)
include(${CMAKE_CURRENT_LIST_DIR}/debian_cross.cmake)
