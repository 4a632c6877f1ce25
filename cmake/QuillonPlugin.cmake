# quillon_add_plugin(NAME
#     SOURCES source...
#     PRINCIPAL_CLASS class
#     [IDENTIFIER identifier]      default: NAME
#     [VERSION version]            default: the project's version
#     [RESOURCES file...]          copied to the bundle's Resources folder
#     [OUTPUT_DIRECTORY folder])   default: the current build folder
#
# Builds the test plug-in NAME as the bundle OUTPUT_DIRECTORY/NAME.bundle. The target's property QUILLON_BUNDLE
# holds the bundle's path.

set(_QUILLON_PLUGIN_INFO "${CMAKE_CURRENT_LIST_DIR}/PluginInfo.plist.in")

function(quillon_add_plugin NAME)
  cmake_parse_arguments(PARSE_ARGV 1 ARG ""
                        "PRINCIPAL_CLASS;IDENTIFIER;VERSION;OUTPUT_DIRECTORY" "SOURCES;RESOURCES")
  if(ARG_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "quillon_add_plugin(${NAME}): unknown argument: ${ARG_UNPARSED_ARGUMENTS}")
  endif()
  foreach(required SOURCES PRINCIPAL_CLASS)
    if(NOT ARG_${required})
      message(FATAL_ERROR "quillon_add_plugin(${NAME}): ${required} is missing")
    endif()
  endforeach()
  if(NOT ARG_IDENTIFIER)
    set(ARG_IDENTIFIER "${NAME}")
  endif()
  if(NOT ARG_VERSION)
    set(ARG_VERSION "${PROJECT_VERSION}")
  endif()
  if(NOT ARG_VERSION)
    set(ARG_VERSION "0.0.0")
  endif()
  if(NOT ARG_OUTPUT_DIRECTORY)
    set(ARG_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}")
  endif()
  set(bundle "${ARG_OUTPUT_DIRECTORY}/${NAME}.bundle")
  set(contents "${bundle}/Contents")

  add_library(${NAME} MODULE ${ARG_SOURCES})
  target_link_libraries(${NAME} PRIVATE Quillon::Quillon)
  set_target_properties(${NAME} PROPERTIES
      PREFIX "" SUFFIX ".so"
      LIBRARY_OUTPUT_DIRECTORY "${contents}"
      CXX_VISIBILITY_PRESET hidden
      VISIBILITY_INLINES_HIDDEN ON
      QUILLON_BUNDLE "${bundle}")
  # Unique symbols would be shared between two plug-ins that define classes of the same name.
  target_compile_options(${NAME} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)

  set(PLUGIN_EXECUTABLE "${NAME}.so")
  set(PLUGIN_IDENTIFIER "${ARG_IDENTIFIER}")
  set(PLUGIN_VERSION "${ARG_VERSION}")
  set(PLUGIN_PRINCIPAL_CLASS "${ARG_PRINCIPAL_CLASS}")
  set(PLUGIN_FRAMEWORK_VERSION "${Quillon_VERSION}")
  configure_file("${_QUILLON_PLUGIN_INFO}" "${contents}/Info.plist" @ONLY)

  set(copies)
  foreach(resource IN LISTS ARG_RESOURCES)
    get_filename_component(from "${resource}" ABSOLUTE)
    get_filename_component(file "${resource}" NAME)
    set(to "${contents}/Resources/${file}")
    add_custom_command(OUTPUT "${to}"
        COMMAND "${CMAKE_COMMAND}" -E copy "${from}" "${to}"
        DEPENDS "${from}" VERBATIM)
    list(APPEND copies "${to}")
  endforeach()
  if(copies)
    add_custom_target(${NAME}_resources DEPENDS ${copies})
    add_dependencies(${NAME} ${NAME}_resources)
  endif()
endfunction()
