# 64-bit ARM.
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
plexa_debian_target(arm64 aarch64-linux-gnu aarch64)
plexa_emulated_by(qemu-aarch64)
