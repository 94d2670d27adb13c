# Between installing into the packages' folders and packing: what Debian's packages have and other installations do not.
# The library's symbols with the versions that brought them, no run path, since the library is where every program
# looks; manual pages compressed; completions where Debian's zsh looks for those of packages.
set(stage ${CPACK_TEMPORARY_INSTALL_DIRECTORY})

file(GLOB programs ${stage}/program/usr/bin/* ${stage}/python/usr/lib/python3*/dist-packages/orvacam/*.so)
foreach(program ${programs})
  file(RPATH_REMOVE FILE ${program})
endforeach()

file(GLOB_RECURSE pages ${stage}/program/usr/share/man/*.[1-9])
foreach(page ${pages})
  execute_process(COMMAND gzip -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# Debian's zsh looks elsewhere than zsh itself does.
set(zsh ${stage}/program/usr/share/zsh)
file(RENAME ${zsh}/site-functions ${zsh}/vendor-completions)

# Fails where a symbol of the list is gone, or one came that the list does not know.
execute_process(COMMAND dpkg-gensymbols -c4 -q -p${CPACK_ORVACAM_LIBRARY} -v${CPACK_PACKAGE_VERSION} -P${stage}/runtime
  -I${CPACK_ORVACAM_SYMBOLS} -O${CPACK_ORVACAM_DEBIAN}/symbols COMMAND_ERROR_IS_FATAL ANY)
string(REGEX REPLACE "[.].*" "" major ${CPACK_PACKAGE_VERSION})
file(WRITE ${CPACK_ORVACAM_DEBIAN}/shlibs
  "liborvacam ${major} ${CPACK_ORVACAM_LIBRARY} (>= ${CPACK_PACKAGE_VERSION})\n")
