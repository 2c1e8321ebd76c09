# Runs on the packages' contents before they are packed: manuals and changelogs are compressed, and the static library
# loses its debug information, as the others have lost theirs.
file(GLOB_RECURSE texts ${CPACK_TEMPORARY_DIRECTORY}/*)
list(FILTER texts INCLUDE REGEX "/share/(man/.*\\.[1-9]|doc/[^/]+/changelog)$")
if(texts)
  execute_process(COMMAND gzip -9n ${texts} COMMAND_ERROR_IS_FATAL ANY)
endif()

file(GLOB_RECURSE archives ${CPACK_TEMPORARY_DIRECTORY}/*.a)
if(archives)
  execute_process(COMMAND strip --strip-debug --enable-deterministic-archives ${archives} COMMAND_ERROR_IS_FATAL ANY)
endif()
