# embed_files(TARGET FUNCTION FOLDER)
#
# Compiles the files of the folder, those of its subfolders included, into the target, so that the program has them
# wherever it is moved to. FUNCTION, with its namespaces, gives them to the target's sources, which declare it:
#
#   namespace station { const std::vector<web::File>& pageFiles(); }   // for embed_files(target station::pageFiles page)
#
# A file's path is the one within the folder: "/index.html".
set(QUILLON_EMBED_SCRIPT "${CMAKE_CURRENT_LIST_DIR}/embed.cmake")

function(embed_files TARGET FUNCTION FOLDER)
  cmake_path(ABSOLUTE_PATH FOLDER NORMALIZE)
  file(GLOB_RECURSE files CONFIGURE_DEPENDS "${FOLDER}/*")
  string(MAKE_C_IDENTIFIER "${FUNCTION}" name)
  set(output "${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp")
  add_custom_command(OUTPUT "${output}"
      COMMAND "${CMAKE_COMMAND}" "-DFOLDER=${FOLDER}" "-DFUNCTION=${FUNCTION}" "-DOUTPUT=${output}"
              -P "${QUILLON_EMBED_SCRIPT}"
      DEPENDS ${files} "${QUILLON_EMBED_SCRIPT}" VERBATIM)
  # Longer than the language asks of every compiler.
  set_source_files_properties("${output}" PROPERTIES COMPILE_OPTIONS -Wno-overlength-strings)
  target_sources(${TARGET} PRIVATE "${output}")
endfunction()
