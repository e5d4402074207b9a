# The lower CAN layer from outside. Either the enclosing project defines the targets plexa::can and
# plexa::common, or their headers and libraries are found in the usual places (CMAKE_PREFIX_PATH).

foreach(name IN ITEMS common can)
  if(TARGET plexa::${name})
    continue()
  endif()
  if(name STREQUAL "common")
    set(header plexa_common/LoggerMutex.h)
  else()
    set(header plexa_can/CanMessage.h)
  endif()
  find_path(PLEXA_${name}_INCLUDE_DIR ${header} REQUIRED)
  find_library(PLEXA_${name}_LIBRARY plexa_${name} REQUIRED)
  add_library(plexa::${name} UNKNOWN IMPORTED)
  set_target_properties(plexa::${name} PROPERTIES
    IMPORTED_LOCATION "${PLEXA_${name}_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${PLEXA_${name}_INCLUDE_DIR}")
endforeach()
