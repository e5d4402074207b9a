# plexa_debian_target(ARCHITECTURE TRIPLET PROCESSOR): Debian's cross compiler of TRIPLET, which brings the C and
# C++ libraries of the target; the others stand in PLEXA_SYSROOT, where scripts/cross lays them.
macro(plexa_debian_target architecture triplet processor)
  set(CMAKE_SYSTEM_NAME Linux)
  set(CMAKE_SYSTEM_PROCESSOR ${processor})
  set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
  set(CMAKE_C_COMPILER ${triplet}-gcc)
  set(CMAKE_CXX_COMPILER ${triplet}-g++)
  set(CMAKE_STRIP ${triplet}-strip)

  if(NOT PLEXA_SYSROOT)
    get_filename_component(PLEXA_SYSROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/sysroot/${architecture}" ABSOLUTE)
  endif()
  # The projects in which CMake tries the compiler are told it too.
  list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PLEXA_SYSROOT)
  set(plexa_libraries "${PLEXA_SYSROOT}/usr/lib/${triplet}")
  set(CMAKE_FIND_ROOT_PATH "${PLEXA_SYSROOT}" /usr/${triplet})
  set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
  # For what the libraries themselves need.
  foreach(kind IN ITEMS EXE SHARED)
    set(CMAKE_${kind}_LINKER_FLAGS_INIT "-L${plexa_libraries} -Wl,-rpath-link,${plexa_libraries}")
  endforeach()
endmacro()

# plexa_emulated_by(QEMU): programs of the target run here in this emulator of qemu-user.
macro(plexa_emulated_by qemu)
  set(CMAKE_CROSSCOMPILING_EMULATOR
    ${qemu} -L /usr/${CMAKE_LIBRARY_ARCHITECTURE} -E LD_LIBRARY_PATH=${plexa_libraries})
endmacro()
