# plexa_add_test(NAME [SOURCES file...] [LINK target...] [LABELS label...] [ENVIRONMENT VAR=value...]
#                [NOT_EMULATED pattern...] [SLOW_EMULATED]):
# a GoogleTest program whose every test is a test of ctest's too, or which is one as a whole. Tests labelled slow
# run one at a time. NOT_EMULATED are tests that an emulator of the processor leaves out; a program that is
# SLOW_EMULATED has the label slow-emulated there.
set(PLEXA_GOOGLETEST_SOURCE "" CACHE PATH "Sources of GoogleTest to build along, instead of an installed one")
option(PLEXA_WHOLE_TEST_PROGRAMS "A program of tests is one test of ctest: for emulators, which are slow to start"
  ${CMAKE_CROSSCOMPILING})

if(PLEXA_GOOGLETEST_SOURCE)
  set(INSTALL_GTEST OFF)
  set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
  add_subdirectory(${PLEXA_GOOGLETEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  if(NOT TARGET GTest::gmock)
    add_library(GTest::gmock ALIAS gmock)
    add_library(GTest::gtest_main ALIAS gtest_main)
  endif()
else()
  find_package(GTest REQUIRED)
endif()
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
  cmake_parse_arguments(ARG "SLOW_EMULATED" "" "SOURCES;LINK;LABELS;ENVIRONMENT;NOT_EMULATED" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  if(ARG_SLOW_EMULATED AND CMAKE_CROSSCOMPILING)
    list(APPEND ARG_LABELS slow-emulated)
  endif()
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
  if(NOT PLEXA_WHOLE_TEST_PROGRAMS)
    gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 PROPERTIES ${properties})
    return()
  endif()
  set(filter "")
  if(CMAKE_CROSSCOMPILING AND ARG_NOT_EMULATED)
    list(JOIN ARG_NOT_EMULATED ":" filter)
    set(filter "--gtest_filter=-${filter}")
  endif()
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1 ${filter})
  set_tests_properties(${name} PROPERTIES TIMEOUT 600 ${properties})
endfunction()

# plexa_start_path(VARIABLE TARGET): the path by which tests start a program of the build: its own, or that of a
# script in emulated/ which hands it to the emulator.
function(plexa_start_path variable target)
  set(${variable} "$<TARGET_FILE:${target}>" PARENT_SCOPE)
  if(CMAKE_CROSSCOMPILING)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/emulated/${target}
      CONTENT "#!/bin/sh\nexec $<JOIN:$<TARGET_PROPERTY:${target},CROSSCOMPILING_EMULATOR>, > $<TARGET_FILE:${target}> \"$@\"\n"
      FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
    set(${variable} ${PROJECT_BINARY_DIR}/emulated/${target} PARENT_SCOPE)
  endif()
endfunction()

# Has the property PROGRAMS: a line each for tests/can-kernel/each.
add_custom_target(can_kernel)

# plexa_add_can_kernel_test(NAME [STEADY] [SOURCES file...] [LINK target...] [COMMAND program argument...]):
# a GoogleTest program, or a command, that runs on a kernel with CAN, as root, with vcan0 and vcan1 up.
# STEADY gives it a boot of its own, of a machine whose speed does not depend on the load of this one.
function(plexa_add_can_kernel_test name)
  if(CMAKE_CROSSCOMPILING) # there is no kernel of the target
    return()
  endif()
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
