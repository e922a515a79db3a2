# Installs SOURCE, compressed, as DESTINATION/NAME.gz. gzip is told to keep no name and no time, so that the same text
# gives the same bytes.

if(NOT EXISTS "${SOURCE}")
  message(FATAL_ERROR "harbix: '${SOURCE}', which belongs to the installation, is missing")
endif()
set(compressed "${WORK_FOLDER}/${NAME}.gz")
file(MAKE_DIRECTORY "${WORK_FOLDER}")
execute_process(COMMAND gzip -9 -n -c "${SOURCE}" OUTPUT_FILE "${compressed}" RESULT_VARIABLE result)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "harbix: gzip could not compress '${SOURCE}': ${result}")
endif()
file(INSTALL DESTINATION "${CMAKE_INSTALL_PREFIX}/${DESTINATION}" TYPE FILE FILES "${compressed}")
