# 32-bit x86, with floating point in registers of 80 bits. A 64-bit x86 runs its programs as they are.
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
plexa_debian_target(i386 i686-linux-gnu i686)
set(CMAKE_CROSSCOMPILING_EMULATOR
  /usr/i686-linux-gnu/lib/ld-linux.so.2 --library-path ${plexa_libraries}:/usr/i686-linux-gnu/lib)
