# Installs the built library to a scratch prefix, checks the installed
# headers against the umbrella header, then configures, builds and runs the
# consumer project against the prefix once per way of finding it, and
# compiles it once more as a C++23 program with pkg-config's flags.
#   cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DLIBDIR=lib
#         -DCXX=<C++ compiler> -P InstallTest.cmake
cmake_policy(VERSION 3.25)
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")

# The installed headers are the public set: each is included by the
# umbrella header, and the umbrella includes nothing that was not installed
# (a private header would be missing here and the consumer would not build).
set(include_dir "${prefix}/include")
file(GLOB_RECURSE installed RELATIVE "${include_dir}"
     "${include_dir}/date_time/*.hpp" "${include_dir}/host/*.hpp")
file(STRINGS "${include_dir}/date_time/KvDateTime.hpp" umbrella_lines
     REGEX "^#include \"")
set(umbrella "")
foreach(line IN LISTS umbrella_lines)
  string(REGEX REPLACE "^#include \"([^\"]+)\".*" "\\1" header "${line}")
  list(APPEND umbrella "${header}")
endforeach()
foreach(header IN LISTS installed)
  if(NOT header STREQUAL "date_time/KvDateTime.hpp" AND
     NOT header IN_LIST umbrella)
    message(FATAL_ERROR "installed but not in KvDateTime.hpp: ${header}")
  endif()
endforeach()
foreach(header IN LISTS umbrella)
  if(NOT header IN_LIST installed)
    message(FATAL_ERROR "in KvDateTime.hpp but not installed: ${header}")
  endif()
endforeach()

foreach(how find_package pkg-config)
  set(dir "${WORK_DIR}/${how}")
  if(how STREQUAL "pkg-config")
    # Only the scratch prefix: a copy installed elsewhere must not be found.
    set(ENV{PKG_CONFIG_LIBDIR} "${prefix}/${LIBDIR}/pkgconfig")
    set(options -DUSE_PKG_CONFIG=ON)
  else()
    set(options -DCMAKE_PREFIX_PATH=${prefix})
  endif()
  run(${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${dir}" ${options}
      -DCMAKE_BUILD_TYPE=Release)
  run(${CMAKE_COMMAND} --build "${dir}")
  run("${dir}/consumer")
endforeach()

# A C++23 program built the way a Makefile does it: its own -std first,
# then pkg-config's flags, so a -std in the package's Cflags would win and
# pin the consumer to an older standard (the program checks __cplusplus).
find_program(PKG_CONFIG pkg-config REQUIRED)
execute_process(COMMAND ${PKG_CONFIG} --cflags kvdatetime
                OUTPUT_VARIABLE cflags OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${PKG_CONFIG} --libs kvdatetime
                OUTPUT_VARIABLE libs OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(cflags UNIX_COMMAND "${cflags}")
separate_arguments(libs UNIX_COMMAND "${libs}")
set(program "${WORK_DIR}/consumer-cxx23")
run(${CXX} -std=c++23 ${cflags} -Wall -Wextra -Wpedantic -Werror
    "-DFOUND_BY=\"pkg-config, plain\"" -DEXPECT_CPLUSPLUS_ABOVE=202002L
    "${CONSUMER_DIR}/consumer.cpp" -o "${program}" ${libs}
    "-Wl,-rpath,${prefix}/${LIBDIR}")
run("${program}")

# The Python module, when the build made one, imported from the prefix
# alone: its rpath must find the installed library.
file(GLOB module "${prefix}/lib/python3*/dist-packages/kvdatetime/_kvdatetime*.so")
if(module AND PYTHON)
  get_filename_component(site "${module}" DIRECTORY)
  get_filename_component(site "${site}" DIRECTORY)
  set(ENV{PYTHONPATH} "${site}")
  run(${PYTHON} -c "import kvdatetime as k; t = k.DateTime((2016, 12, 31, 23, 59, 60.5)).convert(standard=k.TimeStandard.TAI); assert t.stored == 1483228826.5, t")
endif()
