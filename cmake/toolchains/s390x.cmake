# 64 bits, the most significant byte first: shows what depends on the order of bytes.
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
plexa_debian_target(s390x s390x-linux-gnu s390x)
plexa_emulated_by(qemu-s390x)
