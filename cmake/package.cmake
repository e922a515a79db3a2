# What is installed beside the programs, and the packages that "cpack" makes in a build folder: "harbix", the program
# (component "program"), "harbix-inspect" (component "inspect"), and "harbix-device", the simulated tablet (component
# "device").

# harbix_install_compressed(COMPONENT source destination name)
function(harbix_install_compressed component source destination name)
  install(CODE "
    set(SOURCE \"${PROJECT_SOURCE_DIR}/${source}\")
    set(DESTINATION \"${destination}\")
    set(NAME \"${name}\")
    set(WORK_FOLDER \"${PROJECT_BINARY_DIR}/compressed/${component}\")
    include(\"${PROJECT_SOURCE_DIR}/cmake/install_compressed.cmake\")" COMPONENT ${component})
endfunction()

# harbix_install_documents(COMPONENT package PAGES name... DOCUMENTS file...)
function(harbix_install_documents component package)
  cmake_parse_arguments(ARG "" "" "PAGES;DOCUMENTS" ${ARGN})
  set(folder ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package})
  foreach(page ${ARG_PAGES})
    string(REGEX MATCH "[1-8]$" section ${page})
    harbix_install_compressed(${component} docs/man/${page} ${CMAKE_INSTALL_MANDIR}/man${section} ${page})
  endforeach()
  install(FILES packaging/copyright DESTINATION ${folder} COMPONENT ${component})
  if(ARG_DOCUMENTS)
    install(FILES ${ARG_DOCUMENTS} DESTINATION ${folder} COMPONENT ${component})
  endif()
  harbix_install_compressed(${component} packaging/changelog ${folder} changelog.Debian)
  harbix_install_compressed(${component} CHANGELOG.md ${folder} changelog)
endfunction()

harbix_install_documents(program harbix PAGES harbix.1 harbix-archive.5)
set(CPACK_COMPONENTS_ALL program)
if(HARBIX_INSPECT)
  harbix_install_documents(inspect harbix-inspect
    PAGES harbix-inspect.1
    DOCUMENTS docs/inspect-json.schema.json)
  install(FILES docs/examples/read_archive.py DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/harbix-inspect/examples
    COMPONENT inspect)
  # Each shell's folder for completions that come with a package.
  set(completions tools/inspect/completions)
  install(FILES ${completions}/harbix-inspect.bash RENAME harbix-inspect
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions COMPONENT inspect)
  install(FILES ${completions}/_harbix-inspect
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions COMPONENT inspect)
  install(FILES ${completions}/harbix-inspect.fish
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/fish/vendor_completions.d COMPONENT inspect)
  list(APPEND CPACK_COMPONENTS_ALL inspect)
endif()
if(HARBIX_DEVICE)
  harbix_install_documents(device harbix-device
    PAGES harbix-device.1 harbix-installer.1 harbix-pps.1 use.1
    DOCUMENTS docs/installer.md docs/pps.md)
  list(APPEND CPACK_COMPONENTS_ALL device)
endif()

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_CONTACT "The harbix authors <maintainers@harbix.invalid>")
# Each package has a summary of its own, the first line of its description.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_folders.cmake)
set(CPACK_POST_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package_order.cmake)
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
# One tar.gz with everything; a Debian package a component.
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The libraries, in the versions that were linked.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_PROGRAM_PACKAGE_NAME harbix)
set(CPACK_DEBIAN_PROGRAM_DESCRIPTION "backs up and restores a tablet's user data
harbix writes the user data of a tablet into a tar archive and restores it:
the applications with their data and what the installer needs to have them
back, the folders of the shared media, and the settings, live objects of the
publish/subscribe service included. It runs as root on the tablet, once for
each backup, size query or restore.")

set(CPACK_DEBIAN_INSPECT_PACKAGE_NAME harbix-inspect)
set(CPACK_DEBIAN_INSPECT_PACKAGE_SECTION utils)
# Its page refers to those of harbix.
set(CPACK_DEBIAN_INSPECT_PACKAGE_SUGGESTS harbix)
set(CPACK_DEBIAN_INSPECT_DESCRIPTION "shows, verifies and compares the backups of harbix
harbix-inspect reads the archives that harbix writes on a tablet, on any
machine and without privileges, from a file or a pipe: it lists what is in
them, says whether all of it can be restored, makes and checks lists of
checksums, compares two archives, and extracts files.")

set(CPACK_DEBIAN_DEVICE_PACKAGE_NAME harbix-device)
set(CPACK_DEBIAN_DEVICE_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS
  "harbix (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), fuse3")
set(CPACK_DEBIAN_DEVICE_DESCRIPTION "simulated tablet to try harbix on
harbix-device runs a command on a tablet that exists in memory or in a folder:
a root file system with accounts, sample applications and media, a media
library, live publish/subscribe objects, an installer and a system log. It
needs root and FUSE. Its installer can be told to fail, so this package is
for the machines of developers and testers, not for a tablet.")
include(CPack)
