# Debian packages: `cpack -G DEB` in a build folder, or `cmake --workflow --preset packages`.

get_target_property(soversion quillon SOVERSION)

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_PACKAGE_CONTACT "Quillon developers <quillon@example.com>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development documents)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_COMPONENT_RUNTIME_DESCRIPTION [[
This package holds the library that station applications and test plug-ins
use: the test model, the station's configuration, instrument drivers and
result logs.]])
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libquillon${soversion}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
# By the first, packages of plug-ins and station applications get their dependency on this one.
file(CONFIGURE OUTPUT shlibs
    CONTENT "libquillon ${soversion} libquillon${soversion} (>= ${PROJECT_VERSION})\n")
file(CONFIGURE OUTPUT triggers CONTENT "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    "${CMAKE_CURRENT_BINARY_DIR}/shlibs;${CMAKE_CURRENT_BINARY_DIR}/triggers")

set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION [[
This package holds headers and the CMake package, for those who write test
plug-ins and station applications.]])
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libquillon-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS "cmake, g++, quillon-doc, quillon-station")

if(TARGET quillon-bench)
  list(APPEND CPACK_COMPONENTS_ALL bench benchdevelopment)
  set(CPACK_COMPONENT_BENCH_DESCRIPTION [[
This package holds the library of instruments of a real bench that test
plug-ins use: devices over TCP, serial lines and buses, and their drivers.]])
  set(CPACK_COMPONENT_BENCH_DEPENDS runtime)
  set(CPACK_DEBIAN_BENCH_PACKAGE_NAME "libquillon-bench${soversion}")
  set(CPACK_DEBIAN_BENCH_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_BENCH_PACKAGE_SHLIBDEPS ON)
  file(CONFIGURE OUTPUT bench/shlibs
      CONTENT "libquillon-bench ${soversion} libquillon-bench${soversion} (>= ${PROJECT_VERSION})\n")
  set(CPACK_DEBIAN_BENCH_PACKAGE_CONTROL_EXTRA
      "${CMAKE_CURRENT_BINARY_DIR}/bench/shlibs;${CMAKE_CURRENT_BINARY_DIR}/triggers")
  set(CPACK_COMPONENT_BENCHDEVELOPMENT_DESCRIPTION [[
This package holds headers and the CMake package of the library of bench
instruments, for those who write test plug-ins.]])
  set(CPACK_COMPONENT_BENCHDEVELOPMENT_DEPENDS bench development)
  set(CPACK_DEBIAN_BENCHDEVELOPMENT_PACKAGE_NAME libquillon-bench-dev)
  set(CPACK_DEBIAN_BENCHDEVELOPMENT_PACKAGE_SECTION libdevel)
endif()

set(CPACK_COMPONENT_DOCUMENTS_DESCRIPTION [[
This package holds the guides for operators, technicians and test engineers,
and example plug-ins to copy from.]])
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_NAME quillon-doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTS_PACKAGE_ARCHITECTURE all)

if(TARGET quillon-station)
  list(APPEND CPACK_COMPONENTS_ALL station)
  set(CPACK_COMPONENT_STATION_DESCRIPTION [[
This package holds the program that runs a test plug-in at the sites of a
station, and stand-ins for instruments that are not there.]])
  set(CPACK_COMPONENT_STATION_DEPENDS runtime)
  set(CPACK_DEBIAN_STATION_PACKAGE_NAME quillon-station)
  set(CPACK_DEBIAN_STATION_PACKAGE_SECTION electronics)
  set(CPACK_DEBIAN_STATION_PACKAGE_RECOMMENDS quillon-doc)
  set(CPACK_DEBIAN_STATION_PACKAGE_SHLIBDEPS ON)
  # What is loaded when there is a server, and so is not found by looking into the program.
  get_property(loaded GLOBAL PROPERTY QUILLON_LOADED_PACKAGES)
  list(JOIN loaded ", " CPACK_DEBIAN_STATION_PACKAGE_DEPENDS)
endif()

# Where dpkg-shlibdeps finds the framework's library, which is in no installed package.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")

include(CPack)
