# find_package(cachet): the targets cachet::cachet and cachet::cachet_static.
#
# Only the static library's users link Boost themselves; without its packages the shared one serves all the same.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
find_package(Boost 1.74 QUIET COMPONENTS thread system date_time)
include(${CMAKE_CURRENT_LIST_DIR}/cachetTargets.cmake)
