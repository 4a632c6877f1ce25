# cmake -DFOLDER=folder -DOUTPUT=source -P embed.cmake
#
# Writes a C++ source that holds the files of the folder as texts, so that the program has them wherever it is moved to.
cmake_minimum_required(VERSION 3.25)

set(source "#include \"Templates.h\"\n\nnamespace station {\n\n")
string(APPEND source "const std::vector<TemplateFile>& pluginTemplate() {\n")
string(APPEND source "  static const std::vector<TemplateFile> files{\n")
file(GLOB names RELATIVE "${FOLDER}" "${FOLDER}/*")
foreach(name IN LISTS names)
  file(READ "${FOLDER}/${name}" content)
  string(APPEND source "      {\"${name}\", R\"QUILLON(${content})QUILLON\"},\n")
endforeach()
string(APPEND source "  };\n  return files;\n}\n\n}  // namespace station\n")
file(WRITE "${OUTPUT}" "${source}")
