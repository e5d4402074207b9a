# plexa_add_test(NAME [SOURCES file...] [LINK target...] [LABELS label...] [ENVIRONMENT VAR=value...]):
# a GoogleTest program whose every test is a test of ctest's too. Tests labelled slow run one at a time.
find_package(GTest REQUIRED)
include(GoogleTest)

# Instrumented, a program takes half as long to compile without optimization. The libraries keep theirs.
set(PLEXA_TEST_OPTIONS "")
if(PLEXA_SANITIZE AND NOT PLEXA_BUILD_FUZZERS)
  set(PLEXA_TEST_OPTIONS -O0)
endif()

if(PLEXA_PRECOMPILE)
  file(WRITE ${PROJECT_BINARY_DIR}/test_headers.cpp "")
  add_library(plexa_test_headers OBJECT ${PROJECT_BINARY_DIR}/test_headers.cpp)
  target_link_libraries(plexa_test_headers PRIVATE Poco::Foundation GTest::gmock plexa_build_options)
  target_compile_options(plexa_test_headers PRIVATE ${PLEXA_TEST_OPTIONS})
  target_precompile_headers(plexa_test_headers PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <Poco/Exception.h> <Poco/Mutex.h>
    <chrono> <functional> <memory> <string> <thread> <vector>)
endif()

# plexa_link_test(NAME TARGET...): what every GoogleTest program of this project is built with.
function(plexa_link_test name)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gmock GTest::gtest_main plexa_build_options)
  target_compile_options(${name} PRIVATE ${PLEXA_TEST_OPTIONS})
  if(PLEXA_PRECOMPILE)
    target_link_libraries(${name} PRIVATE Poco::Foundation) # for its definitions, which have to be the same
    target_precompile_headers(${name} REUSE_FROM plexa_test_headers)
  endif()
endfunction()

function(plexa_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LABELS;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  plexa_link_test(${name} ${ARG_LINK})
  set(properties "")
  foreach(property IN ITEMS LABELS ENVIRONMENT)
    if(ARG_${property})
      list(APPEND properties ${property} "${ARG_${property}}")
    endif()
  endforeach()
  if("slow" IN_LIST ARG_LABELS)
    list(APPEND properties RUN_SERIAL ON TIMEOUT 600)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES ${properties})
endfunction()

# Has the property PROGRAMS: a line each for tests/can-kernel/each.
add_custom_target(can_kernel)

# plexa_add_can_kernel_test(NAME [STEADY] [SOURCES file...] [LINK target...] [COMMAND program argument...]):
# a GoogleTest program, or a command, that runs on a kernel with CAN, as root, with vcan0 and vcan1 up.
# STEADY gives it a boot of its own, of a machine whose speed does not depend on the load of this one.
function(plexa_add_can_kernel_test name)
  cmake_parse_arguments(ARG "STEADY" "" "SOURCES;LINK;COMMAND" ${ARGN})
  if(ARG_SOURCES)
    add_executable(${name} ${ARG_SOURCES})
    plexa_link_test(${name} ${ARG_LINK})
    set(ARG_COMMAND $<TARGET_FILE:${name}>)
  endif()
  if(ARG_STEADY)
    add_test(NAME CanKernel.${name}
      COMMAND ${PROJECT_SOURCE_DIR}/tests/can-kernel/run --steady --timeout 300 ${ARG_COMMAND})
    set_tests_properties(CanKernel.${name} PROPERTIES LABELS can-kernel TIMEOUT 400)
    return()
  endif()
  list(JOIN ARG_COMMAND "' '" command)
  set_property(TARGET can_kernel APPEND PROPERTY PROGRAMS "${name} '${command}'")
  add_test(NAME CanKernel.${name}
    COMMAND ${PROJECT_SOURCE_DIR}/tests/can-kernel/result ${CMAKE_BINARY_DIR}/can-kernel.log ${name})
  set_tests_properties(CanKernel.${name} PROPERTIES
    LABELS can-kernel FIXTURES_REQUIRED can_kernel_boot)
endfunction()
