# Installs the built library to a scratch prefix, then configures, builds
# and runs the consumer project against it, once per way of finding it.
#   cmake -DBUILD_DIR=... -DCONSUMER_DIR=... -DWORK_DIR=... -DLIBDIR=lib
#         -P InstallTest.cmake
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
foreach(mode find_package pkg-config)
  set(dir "${WORK_DIR}/${mode}")
  if(mode STREQUAL "pkg-config")
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

# The Python module, when the build made one, imported from the prefix
# alone: its rpath must find the installed library.
file(GLOB module "${prefix}/lib/python3*/dist-packages/kvdatetime/_kvdatetime*.so")
if(module AND PYTHON)
  get_filename_component(site "${module}" DIRECTORY)
  get_filename_component(site "${site}" DIRECTORY)
  set(ENV{PYTHONPATH} "${site}")
  run(${PYTHON} -c "import kvdatetime as k; t = k.DateTime((2016, 12, 31, 23, 59, 60.5)).convert(standard=k.TimeStandard.TAI); assert t.stored == 1483228826.5, t")
endif()
