# cmake -DFOLDER=folder -DCHART_JS=file -DOUTPUT=source -P embed.cmake
#
# Writes a C++ source that holds what a page of a report consists of, so that it needs nothing else.
cmake_minimum_required(VERSION 3.25)

set(source "#include \"reports/PageParts.h\"\n\nnamespace reports {\n\n")
foreach(part "pageStyle;${FOLDER}/report.css" "pageScript;${FOLDER}/report.js" "chartLibrary;${CHART_JS}")
  list(GET part 0 function)
  list(GET part 1 file)
  file(READ "${file}" content)
  string(APPEND source "std::string_view ${function}() {\n  return R\"QUILLON(${content})QUILLON\";\n}\n\n")
endforeach()
string(APPEND source "}  // namespace reports\n")
file(WRITE "${OUTPUT}" "${source}")
