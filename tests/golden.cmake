# Runs TOOL on INPUT and compares standard output and exit status with
# EXPECTED and EXIT_CODE.
execute_process(COMMAND ${TOOL} ${INPUT} OUTPUT_VARIABLE out RESULT_VARIABLE status)
file(READ ${EXPECTED} want)
if(NOT out STREQUAL want)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/golden-actual.txt "${out}")
  message(FATAL_ERROR "output of ${INPUT} differs from ${EXPECTED}; actual output in golden-actual.txt")
endif()
if(NOT status EQUAL EXIT_CODE)
  message(FATAL_ERROR "exit status ${status}, expected ${EXIT_CODE}")
endif()
