# Installs the build tree into a fresh prefix, then builds and runs the consumer program
# against it, through find_package and through pkg-config.
cmake_minimum_required(VERSION 3.18)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${result}): ${command}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

string(REPLACE ";" " " flags "${EXTRA_FLAGS}")
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${flags}"
    "-DCMAKE_EXE_LINKER_FLAGS=${flags}" "-DCMAKE_BUILD_RPATH=${prefix}/lib")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
file(GLOB libdirs LIST_DIRECTORIES true ${prefix}/lib*)
set(ENV{LD_LIBRARY_PATH} "${libdirs}")
run(${WORK_DIR}/build/consumer)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer built with CMake printed: ${last_output}")
endif()

# The same program through pkg-config.
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pcfile ${prefix}/*/krboxlibrary.pc)
get_filename_component(pcdir "${pcfile}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pcdir}")
run(${PKG_CONFIG} --cflags --libs krboxlibrary)
string(STRIP "${last_output}" pkgflags)
separate_arguments(pkgflags UNIX_COMMAND "${pkgflags}")
separate_arguments(extra UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 -fPIC ${extra} ${CONSUMER_DIR}/main.cpp -o ${WORK_DIR}/consumer-pc ${pkgflags})
run(${WORK_DIR}/consumer-pc)
if(NOT last_output MATCHES "consumer ok")
  message(FATAL_ERROR "consumer built with pkg-config printed: ${last_output}")
endif()
message(STATUS "install and consume: ok")
