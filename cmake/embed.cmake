# cmake -DFOLDER=folder -DFUNCTION=namespace::function -DOUTPUT=source -P embed.cmake
#
# Writes a C++ source that holds the files of the folder; see EmbedFiles.cmake.
cmake_minimum_required(VERSION 3.25)

set(type.html "text/html; charset=utf-8")
set(type.css "text/css; charset=utf-8")
set(type.js "text/javascript; charset=utf-8")
set(type.json "application/json")
set(type.svg "image/svg+xml")
set(type.png "image/png")
set(type.ico "image/x-icon")
set(type.txt "text/plain; charset=utf-8")
set(type.woff2 "font/woff2")

string(REGEX MATCH "^(.*)::([^:]+)$" qualified "${FUNCTION}")
set(space "${CMAKE_MATCH_1}")
set(function "${CMAKE_MATCH_2}")

set(contents "")
set(entries "")
set(number 0)
file(GLOB_RECURSE names RELATIVE "${FOLDER}" "${FOLDER}/*")
foreach(name IN LISTS names)
  cmake_path(GET name EXTENSION LAST_ONLY extension)
  if(NOT DEFINED type${extension})
    message(FATAL_ERROR "${FOLDER}/${name}: no content type is known for its extension")
  endif()
  math(EXPR number "${number} + 1")
  file(READ "${FOLDER}/${name}" content HEX)
  string(REGEX REPLACE "(..)" "\\\\x\\1" content "${content}")
  # Pieces, because compilers and editors choke on lines without end.
  string(REGEX REPLACE "((\\\\x..)(\\\\x..)(\\\\x..)(\\\\x..)(\\\\x..)(\\\\x..)(\\\\x..)(\\\\x..))" "\\1\"\n    \"" content
                       "${content}")
  string(APPEND contents "const char content${number}[] =\n    \"${content}\";\n")
  string(APPEND entries "      {\"/${name}\", \"${type${extension}}\",\n"
                        "       {content${number}, sizeof content${number} - 1}},\n")
endforeach()

file(WRITE "${OUTPUT}" "#include <vector>\n\n#include \"web/Server.h\"\n\nnamespace ${space} {\n\nnamespace {\n\n"
                       "${contents}\n}  // namespace\n\nconst std::vector<web::File>& ${function}();\n\n"
                       "const std::vector<web::File>& ${function}() {\n"
                       "  static const std::vector<web::File> files{\n${entries}  };\n  return files;\n}\n\n"
                       "}  // namespace ${space}\n")
