# The target `reference`: the reference of the public headers as web pages, where Doxygen is installed. A warning fails it.
find_program(CACHET_DOXYGEN doxygen)
if(NOT CACHET_DOXYGEN)
  return()
endif()

configure_file(docs/Doxyfile.in Doxyfile @ONLY)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/reference)
add_custom_target(reference COMMAND ${CACHET_DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile
                  WORKING_DIRECTORY ${PROJECT_SOURCE_DIR} COMMENT "Reference: ${PROJECT_BINARY_DIR}/reference/html/index.html"
                  VERBATIM)
