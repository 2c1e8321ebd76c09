# How release builds are compiled and linked beyond optimisation: hardened, and the same bits in whatever folder.
#
# Other build types keep their hands free: a sanitizer has checks of its own, and a debugger wants the true paths.
set(CACHET_RELEASE $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)

add_compile_options("$<${CACHET_RELEASE}:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")

# The tree's own folder is "." in debug information and messages, however a source is named.
file(RELATIVE_PATH way_to_sources ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
foreach(folder IN ITEMS ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${way_to_sources})
  string(REGEX REPLACE "/$" "" folder ${folder})
  add_compile_options("$<${CACHET_RELEASE}:-ffile-prefix-map=${folder}=.>")
endforeach()

# Every address is resolved at load time, and what the linker filled in is read-only from then on.
add_link_options("$<${CACHET_RELEASE}:LINKER:-z,relro,-z,now>")
