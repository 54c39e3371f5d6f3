include(CMakeFindDependencyMacro)
find_dependency(OpenMP COMPONENTS CXX)
include(${CMAKE_CURRENT_LIST_DIR}/corvidTargets.cmake)
