# Run by cpack after it has packed: packs the tar.gz again with its members in the order of their names. cpack takes them
# in the order in which the file system lists them, which is another one in another folder.
if(NOT CPACK_GENERATOR STREQUAL "TGZ")
  return()
endif()
set(time)
if(DEFINED ENV{SOURCE_DATE_EPOCH})
  set(time --mtime=@$ENV{SOURCE_DATE_EPOCH})
endif()
cmake_path(GET CPACK_TEMPORARY_DIRECTORY PARENT_PATH parent)
cmake_path(GET CPACK_TEMPORARY_DIRECTORY FILENAME name)
foreach(package ${CPACK_PACKAGE_FILES})
  execute_process(
    COMMAND tar --create --sort=name --format=gnu --owner=root:0 --group=root:0 ${time} --directory=${parent} ${name}
    COMMAND gzip -9 -n
    OUTPUT_FILE ${package}
    RESULTS_VARIABLE results)
  if(NOT results STREQUAL "0;0")
    message(FATAL_ERROR "harbix: '${package}' could not be packed in order: ${results}")
  endif()
endforeach()
