# Runs PROGRAM and fails unless its standard output is the text of EXPECTED.
execute_process(COMMAND ${PROGRAM} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
file(READ ${EXPECTED} expected)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} exited with ${rc}")
endif()
if(NOT out STREQUAL expected)
  message(FATAL_ERROR "${PROGRAM} printed\n${out}\ninstead of\n${expected}")
endif()
