# plexa_add_test(NAME [SOURCES file...] [LINK target...] [LABELS label...] [ENVIRONMENT VAR=value...]):
# a GoogleTest program whose every test is a test of ctest's too. Tests labelled slow run one at a time.
find_package(GTest REQUIRED)
include(GoogleTest)

function(plexa_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LABELS;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest_main
    plexa_build_options)
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
