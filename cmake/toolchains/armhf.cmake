# 32-bit ARM with hardware floating point, from ARMv7 on.
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
plexa_debian_target(armhf arm-linux-gnueabihf armv7l)
plexa_emulated_by(qemu-arm)
# Tells at every instance of a template that GCC 7 passes it otherwise than GCC 6.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
