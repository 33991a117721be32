# Debian's packages hold their manual pages compressed.
file(GLOB_RECURSE pages ${CPACK_TEMPORARY_DIRECTORY}/*.1)
list(FILTER pages INCLUDE REGEX "/man1/")
foreach(page ${pages})
  execute_process(COMMAND gzip -9nf ${page})
endforeach()
