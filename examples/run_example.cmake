# Runs one example: cmake -DPROGRAM=path -DEXPECTED=file -P run_example.cmake
# Fails unless the program exits with 0 and, when EXPECTED exists, its
# standard output is exactly that file.
execute_process(COMMAND ${PROGRAM} RESULT_VARIABLE status OUTPUT_VARIABLE out
                ERROR_VARIABLE err)
if(NOT status STREQUAL "0")
  message(FATAL_ERROR "${PROGRAM}: exit status ${status}\n${err}")
endif()
if(EXISTS "${EXPECTED}")
  file(READ "${EXPECTED}" want)
  if(NOT out STREQUAL want)
    message(FATAL_ERROR "${PROGRAM}: output differs from ${EXPECTED}; it printed:\n${out}")
  endif()
endif()
