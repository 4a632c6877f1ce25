# The precompiled header of the libraries in sanitizer builds: what most sources take of the standard library.
#
# It saves a third of compiling them. The plain build does without, so a source that includes too little is told so
# there.

target_precompile_headers(quillon_common PRIVATE
    <algorithm> <array> <atomic> <chrono> <condition_variable> <cstdint> <cstdlib> <cstring> <exception> <filesystem>
    <fstream> <functional> <iostream> <iterator> <limits> <map> <memory> <mutex> <optional> <set> <span> <sstream>
    <stdexcept> <string> <string_view> <system_error> <thread> <tuple> <unordered_map> <utility> <variant> <vector>)
foreach(library IN ITEMS quillon quillon-bench quillon_results quillon_statistics quillon_reports quillon_web quillon_station)
  if(TARGET ${library})
    target_precompile_headers(${library} REUSE_FROM quillon_common)
  endif()
endforeach()
