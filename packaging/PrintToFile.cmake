# Writes what PROGRAM prints for ARGUMENTS (words separated by spaces) to OUTPUT,
# replacing it only once the program has succeeded. With COMPRESS set it also
# writes OUTPUT.gz, without a name or a time in it, so a rebuild gives the same
# bytes.
separate_arguments(arguments UNIX_COMMAND "${ARGUMENTS}")
execute_process(
  COMMAND "${PROGRAM}" ${arguments}
  OUTPUT_FILE "${OUTPUT}.part"
  ERROR_VARIABLE errors
  RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  file(REMOVE "${OUTPUT}.part")
  message(FATAL_ERROR "${PROGRAM} ${ARGUMENTS} failed (${result}): ${errors}")
endif()
file(RENAME "${OUTPUT}.part" "${OUTPUT}")

if(COMPRESS)
  execute_process(
    COMMAND gzip -9 -n -c "${OUTPUT}"
    OUTPUT_FILE "${OUTPUT}.gz"
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "gzip ${OUTPUT} failed (${result})")
  endif()
endif()
