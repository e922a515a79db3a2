# Run by cpack before it packs what was installed: gives the folders their mode, as mkdir took the mask of the user away.
file(CHMOD_RECURSE "${CPACK_TEMPORARY_INSTALL_DIRECTORY}"
  DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
