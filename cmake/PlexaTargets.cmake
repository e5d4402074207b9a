# Compiler settings that every target of this project shares, and the shape of its libraries.

add_library(plexa_build_options INTERFACE)
target_compile_features(plexa_build_options INTERFACE cxx_std_17)
target_compile_options(plexa_build_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2
  -Wnon-virtual-dtor -Woverloaded-virtual -Wundef
  $<$<BOOL:${PLEXA_WERROR}>:-Werror>)
if(PLEXA_SANITIZE)
  target_compile_options(plexa_build_options INTERFACE
    -fsanitize=${PLEXA_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(plexa_build_options INTERFACE -fsanitize=${PLEXA_SANITIZE})
endif()
if(PLEXA_COVERAGE)
  target_compile_options(plexa_build_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(plexa_build_options INTERFACE --coverage)
endif()

set(PLEXA_EXPORTS_MAP "${CMAKE_CURRENT_LIST_DIR}/exports.map")

# plexa_add_library(NAME SOURCES...): the library libplexa_NAME.so.1 or libplexa_NAME.a, known to others as
# plexa::NAME. Only what an export macro names is visible outside a shared one. An exports.map beside the
# sources takes the place of the common one.
function(plexa_add_library name)
  set(target plexa_${name})
  set(map "${PLEXA_EXPORTS_MAP}")
  if(EXISTS "${CMAKE_CURRENT_SOURCE_DIR}/exports.map")
    set(map "${CMAKE_CURRENT_SOURCE_DIR}/exports.map")
  endif()
  if(PLEXA_BUILD_SHARED)
    add_library(${target} SHARED ${ARGN})
  else()
    add_library(${target} STATIC ${ARGN})
  endif()
  add_library(plexa::${name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES
    EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS "${map}")
  # Nobody replaces a function of these libraries by one of the same name: calls inside them go the direct way.
  target_compile_options(${target} PRIVATE -fno-semantic-interposition -fno-plt)
  target_link_options(${target} PRIVATE "LINKER:--version-script=${map},-Bsymbolic-functions")
  # By their properties: a link to them would have to be exported.
  target_compile_features(${target} PRIVATE cxx_std_17)
  target_compile_options(${target} PRIVATE $<TARGET_PROPERTY:plexa_build_options,INTERFACE_COMPILE_OPTIONS>)
  target_link_options(${target} PRIVATE $<TARGET_PROPERTY:plexa_build_options,INTERFACE_LINK_OPTIONS>)
endfunction()
