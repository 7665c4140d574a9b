# cmake -P: installs BUILD_DIR into a fresh prefix under WORK_DIR, checks the layout, runs the
# installed kalvo-devhost (which must find the installed sensor, not the build tree's), then
# configures, builds and runs the consumer project against the prefix.
set(prefix "${WORK_DIR}/prefix")
file(REMOVE_RECURSE "${WORK_DIR}")

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
foreach(file bin/kalvo-devhost lib/kalvo/${PLUGIN_NAME} include/kalvo/host/IPackage.h
        share/doc/kalvo-securitymonitor/README.md share/doc/kalvo-securitymonitor/examples/trace.jsonl
        share/doc/kalvo-securitymonitor/docs/performance.md)
  if(NOT EXISTS "${prefix}/${file}")
    message(FATAL_ERROR "not installed: ${file}")
  endif()
endforeach()

# Run from elsewhere, so that nothing relative to the working directory helps.
run("${prefix}/bin/kalvo-devhost" --version WORKING_DIRECTORY "${WORK_DIR}")
set(expected "kalvo-devhost ${VERSION}\nsensor ${VERSION} (${prefix}/lib/kalvo/${PLUGIN_NAME})\n")
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "kalvo-devhost --version said:\n${out}\nexpected:\n${expected}")
endif()

run(${CMAKE_COMMAND} -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}" -DCMAKE_CXX_COMPILER=${CXX}
    "-DCMAKE_CXX_FLAGS=${CXX_FLAGS}" -DCMAKE_PREFIX_PATH=${prefix} -DKALVO_EXPECTED_VERSION=${VERSION})
run(${CMAKE_COMMAND} --build "${WORK_DIR}/build")
run("${WORK_DIR}/build/consumer")
message(STATUS "${out}")
string(FIND "${out}" "${prefix}/lib/kalvo/${PLUGIN_NAME}: version 1" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the consumer did not load the installed sensor: ${out}")
endif()
