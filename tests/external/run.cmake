# Builds the core over the foreign lower layer and runs the program:
#   cmake -D LOWER_LAYER=targets|found -D SOURCE=here -D WORK=directory -D COMPILER=g++ -P run.cmake

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(build source binary)
  run(${CMAKE_COMMAND} -G Ninja -S ${source} -B ${binary} -DCMAKE_BUILD_TYPE=Debug
    -DCMAKE_CXX_COMPILER=${COMPILER} ${ARGN})
  run(${CMAKE_COMMAND} --build ${binary})
endfunction()

set(options -DLOWER_LAYER=${LOWER_LAYER})
if(LOWER_LAYER STREQUAL "found")
  build(${SOURCE}/lower ${WORK}/lower)
  run(${CMAKE_COMMAND} --install ${WORK}/lower --prefix ${WORK}/prefix)
  list(APPEND options -DCMAKE_PREFIX_PATH=${WORK}/prefix)
endif()
build(${SOURCE} ${WORK}/program ${options})
run(${CMAKE_CTEST_COMMAND} --test-dir ${WORK}/program --output-on-failure --no-tests=error)
