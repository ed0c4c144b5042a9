# Installs the build tree into a fresh prefix that is no system directory, then builds the
# consumer program against it through find_package and through pkg-config, and runs it and
# the installed krbox with an empty environment: the run paths alone must find the libraries.
cmake_minimum_required(VERSION 3.18)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "failed (${result}): ${command}\n${out}\n${err}")
  endif()
  set(last_output "${out}" PARENT_SCOPE)
endfunction()

# Runs a program of the prefix with nothing in its environment, and checks what it prints.
function(run_clean expected)
  run(env -i ${ARGN})
  if(NOT last_output MATCHES "${expected}")
    string(REPLACE ";" " " command "${ARGN}")
    message(FATAL_ERROR "${command} printed: ${last_output}")
  endif()
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

string(REPLACE ";" " " flags "${EXTRA_FLAGS}")
run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${WORK_DIR}/build -G "${GENERATOR}"
    -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM} -DCMAKE_PREFIX_PATH=${prefix}
    -DCMAKE_CXX_COMPILER=${CXX} "-DCMAKE_CXX_FLAGS=${flags}" "-DCMAKE_EXE_LINKER_FLAGS=${flags}")
run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run_clean("consumer ok" ${WORK_DIR}/build/consumer)

if(KRBOX)
  get_filename_component(name ${KRBOX} NAME)
  run_clean("^Robot Basics\n  \\[-\\] Motions" ${prefix}/bin/${name} tree "${EXAMPLES}/Robot Basics.lbf")
  foreach(file share/man/man1/krbox.1.gz share/bash-completion/completions/krbox)
    if(NOT EXISTS ${prefix}/${file})
      message(FATAL_ERROR "not installed: ${file}")
    endif()
  endforeach()
endif()

# The module from the prefix's Python directory. A sanitized one would need its runtime
# preloaded into python3.
if(PYTHON AND NOT EXTRA_FLAGS)
  run_clean("^Robot Basics 4\n" PYTHONPATH=${prefix}/${PYTHON_DIR} ${PYTHON} -c
    "import krboxlibrary as k\nl = k.Library('${EXAMPLES}/Robot Basics.lbf')\nprint(l.title, len(l.root))")
endif()

# The same program through pkg-config, with the flags the README gives for a prefix that is
# not on the loader's path.
find_program(PKG_CONFIG pkg-config REQUIRED)
file(GLOB_RECURSE pcfile ${prefix}/*/krboxlibrary.pc)
get_filename_component(pcdir "${pcfile}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pcdir}")
run(${PKG_CONFIG} --cflags --libs krboxlibrary)
string(STRIP "${last_output}" pkgflags)
run(${PKG_CONFIG} --variable=libdir krboxlibrary)
string(STRIP "${last_output}" libdir)
separate_arguments(pkgflags UNIX_COMMAND "${pkgflags}")
separate_arguments(extra UNIX_COMMAND "${flags}")
run(${CXX} -std=c++17 ${extra} ${CONSUMER_DIR}/main.cpp -o ${WORK_DIR}/consumer-pc ${pkgflags}
    -Wl,-rpath,${libdir})
run_clean("consumer ok" ${WORK_DIR}/consumer-pc)
message(STATUS "install and consume: ok")
