# Run by CPack on the trees that it makes packages of. In /usr the loader knows its way: the run
# paths that serve an archive unpacked anywhere are taken out.
file(GLOB_RECURSE files "${CPACK_TEMPORARY_DIRECTORY}/*/usr/bin/vela"
  "${CPACK_TEMPORARY_DIRECTORY}/*/usr/lib/libvela_picture.so.*")
foreach(file IN LISTS files)
  if(NOT IS_SYMLINK "${file}")
    file(RPATH_REMOVE FILE "${file}")
  endif()
endforeach()

# Debian's manual pages are compressed.
file(GLOB_RECURSE pages "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/man/man1/*.1")
if(NOT pages)
  message(FATAL_ERROR "no manual pages are in ${CPACK_TEMPORARY_DIRECTORY}")
endif()
execute_process(COMMAND gzip -9nf ${pages} COMMAND_ERROR_IS_FATAL ANY)

# Debian's zsh looks into a folder of its own.
file(GLOB folders "${CPACK_TEMPORARY_DIRECTORY}/*/usr/share/zsh/site-functions")
foreach(folder IN LISTS folders)
  get_filename_component(zsh "${folder}" DIRECTORY)
  file(RENAME "${folder}" "${zsh}/vendor-completions")
endforeach()
