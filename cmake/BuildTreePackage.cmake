# Lets find_package(Quillon) find this build folder, given in CMAKE_PREFIX_PATH, as it finds an installed Quillon. So
# plug-ins can be tried out against a Quillon that is being worked on.
set(package "${PROJECT_BINARY_DIR}/lib/cmake/Quillon")
export(TARGETS quillon NAMESPACE Quillon:: FILE "${package}/QuillonTargets.cmake")
set(bench_found 0)
if(TARGET quillon-bench)
  set(bench_found 1)
  export(TARGETS quillon-bench NAMESPACE Quillon:: FILE "${package}/QuillonBenchTargets.cmake")
endif()
file(CONFIGURE OUTPUT "${package}/QuillonConfig.cmake" @ONLY CONTENT
[[set(Quillon_VERSION "@PROJECT_VERSION@")
include("${CMAKE_CURRENT_LIST_DIR}/QuillonTargets.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/QuillonBenchTargets.cmake" OPTIONAL)
set(Quillon_Bench_FOUND @bench_found@)
include("@PROJECT_SOURCE_DIR@/cmake/QuillonPlugin.cmake")
]])
