# Changes the layout of `cmake --install` to the layout of a Debian package.
set(shared ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)

file(GLOB_RECURSE documents ${shared}/man/*.1 ${shared}/doc/*/changelog)
execute_process(COMMAND gzip -9n ${documents} COMMAND_ERROR_IS_FATAL ANY)

file(GLOB programs ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/bin/*
  ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/lib/web-resource-installer/*.app/Contents/MacOS/*)
execute_process(COMMAND ${CPACK_STRIP_COMMAND} --remove-section=.comment ${programs} COMMAND_ERROR_IS_FATAL ANY)

file(MAKE_DIRECTORY ${shared}/zsh)
file(RENAME ${shared}/zsh/site-functions ${shared}/zsh/vendor-completions)
