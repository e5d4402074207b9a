# plexa_add_test(NAME [SOURCES file...] [LINK target...] [LABELS label...]): a GoogleTest program
# whose every test is a test of ctest's too.
find_package(GTest REQUIRED)
include(GoogleTest)

function(plexa_add_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest_main
    plexa_build_options)
  set(properties "")
  if(ARG_LABELS)
    set(properties PROPERTIES LABELS "${ARG_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 120 ${properties})
endfunction()
