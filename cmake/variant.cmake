# A variant of the library, for tests and comparisons: what it is made of, built with `definition`.
function(cachet_add_variant name type definition)
  add_library(${name} ${type} ${CACHET_SOURCES})
  target_compile_definitions(${name} PUBLIC ${definition})
  target_compile_options(${name} PRIVATE -fno-semantic-interposition -ffp-contract=off)
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/include PRIVATE ${PROJECT_SOURCE_DIR}/cpp)
  target_link_libraries(${name} PUBLIC Boost::thread Threads::Threads)
endfunction()
