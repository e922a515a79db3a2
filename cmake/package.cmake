# What is installed beside the programs, and the packages that "cpack" makes in a build folder.

install(FILES docs/man/harbix.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(FILES docs/architecture.md docs/testing.md DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)

set(CPACK_GENERATOR DEB TGZ)
set(CPACK_PACKAGE_CONTACT "harbix maintainers <maintainers@harbix.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
# The libraries, in the versions that were linked.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
include(CPack)
