# A project of somebody else gets at the libraries in one WAY, builds a program and runs it:
#   cmake -D WAY=... -D BUILD=build tree -D WORK=directory -D COMPILER=g++ -P run.cmake

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# Every program says its version and the frame that it got.
function(run_program)
  execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE said COMMAND_ERROR_IS_FATAL ANY)
  if(NOT said MATCHES "^[0-9]+\\.[0-9]+\\.[0-9]+ 0F800481#20\n$")
    message(FATAL_ERROR "the program said '${said}'")
  endif()
endfunction()

function(build project)
  run(${CMAKE_COMMAND} -G Ninja -S ${CMAKE_CURRENT_LIST_DIR}/${project} -B ${WORK}/${project}
    -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_CXX_COMPILER=${COMPILER} ${ARGN})
  run(${CMAKE_COMMAND} --build ${WORK}/${project})
  run_program(${WORK}/${project}/program)
endfunction()

# What is installed works from wherever it was put: no path of its build is in it.
function(install_build_tree)
  run(${CMAKE_COMMAND} -E env DESTDIR=${WORK}/root ${CMAKE_COMMAND} --install ${BUILD} --prefix /opt/tarn)
  file(RENAME ${WORK}/root/opt/tarn ${WORK}/prefix)
endfunction()

function(build_with_pkg_config)
  file(GLOB_RECURSE files ${WORK}/prefix/*/plexa_tarn.pc)
  cmake_path(GET files PARENT_PATH modules)
  set(ENV{PKG_CONFIG_PATH} ${modules})
  execute_process(COMMAND pkg-config ${ARGN} --cflags --libs plexa_tarn plexa_can plexa_common
    OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY OUTPUT_STRIP_TRAILING_WHITESPACE)
  separate_arguments(flags)
  run(${COMPILER} -std=c++14 ${CMAKE_CURRENT_LIST_DIR}/program.cpp -o ${WORK}/program ${flags})
  cmake_path(GET modules PARENT_PATH libraries)
  run_program(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libraries} ${WORK}/program)
endfunction()

file(REMOVE_RECURSE ${WORK})
if(WAY STREQUAL "installed")
  install_build_tree()
  foreach(standard IN ITEMS 14 20)
    build(found -DCMAKE_PREFIX_PATH=${WORK}/prefix -DSTANDARD=${standard})
  endforeach()
  build_with_pkg_config()
  run(${WORK}/prefix/bin/tarn --version)
elseif(WAY STREQUAL "build_tree")
  build(found -Dplexa_tarn_DIR=${BUILD})
elseif(WAY STREQUAL "fetched") # linked statically, and so installed
  build(fetched -DPLEXA_INSTALL=ON)
  run(${CMAKE_COMMAND} --install ${WORK}/fetched --prefix ${WORK}/prefix)
  build(found -DCMAKE_PREFIX_PATH=${WORK}/prefix)
  build_with_pkg_config(--static)
else()
  build(${WAY})
endif()
