# What other projects find the libraries by: a CMake package and pkg-config files, installed and in the build tree.
#
# Components of `cmake --install --component`: common, can, tarn (the shared libraries), dev (headers and what
# finds them) and tools.
include(CMakePackageConfigHelpers)

# Programs and libraries find those installed beside them, wherever that is. CMAKE_SKIP_INSTALL_RPATH leaves it to
# the system's linker.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
  file(RELATIVE_PATH PLEXA_LIBRARIES_FROM_PROGRAMS ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set(CMAKE_INSTALL_RPATH "$ORIGIN;$ORIGIN/${PLEXA_LIBRARIES_FROM_PROGRAMS}")
endif()

set(PLEXA_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/plexa_tarn)

# plexa_install_library(NAME HEADERS): the library, and the folder of its headers.
function(plexa_install_library name headers)
  install(TARGETS plexa_${name} EXPORT plexa_tarnTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${name} NAMELINK_COMPONENT dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(DIRECTORY ${headers}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
endfunction()

# plexa_install_pkg_config(NAME DESCRIPTION [REQUIRES module...] [PRIVATE_LIBS flag...])
function(plexa_install_pkg_config name description)
  cmake_parse_arguments(ARG "" "" "REQUIRES;PRIVATE_LIBS" ${ARGN})
  list(JOIN ARG_REQUIRES ", " PLEXA_PC_REQUIRES)
  list(JOIN ARG_PRIVATE_LIBS " " PLEXA_PC_PRIVATE_LIBS)
  set(PLEXA_PC_NAME plexa_${name})
  set(PLEXA_PC_DESCRIPTION "${description}")
  # From the file's own place, so that a tree which is moved, or installed under DESTDIR, is found.
  file(RELATIVE_PATH PLEXA_PC_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/plexa.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/plexa_${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/plexa_${name}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)
endfunction()

function(plexa_install_config)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/plexa_tarnConfig.cmake.in
    ${PROJECT_BINARY_DIR}/plexa_tarnConfig.cmake INSTALL_DESTINATION ${PLEXA_CONFIG_DIR})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/plexa_tarnConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
  set(files ${PROJECT_BINARY_DIR}/plexa_tarnConfig.cmake ${PROJECT_BINARY_DIR}/plexa_tarnConfigVersion.cmake)
  if(PLEXA_PLATFORM STREQUAL "external")
    list(APPEND files ${PROJECT_SOURCE_DIR}/cmake/ExternalPlatform.cmake)
    file(COPY ${PROJECT_SOURCE_DIR}/cmake/ExternalPlatform.cmake DESTINATION ${PROJECT_BINARY_DIR})
  endif()
  install(FILES ${files} DESTINATION ${PLEXA_CONFIG_DIR} COMPONENT dev)
  install(EXPORT plexa_tarnTargets NAMESPACE plexa:: DESTINATION ${PLEXA_CONFIG_DIR} COMPONENT dev)
  export(EXPORT plexa_tarnTargets NAMESPACE plexa:: FILE ${PROJECT_BINARY_DIR}/plexa_tarnTargets.cmake)
endfunction()
