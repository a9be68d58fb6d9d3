# Text files as functions of a program. As a script: writes OUTPUT, a source that defines in vorn::kit, by
# HEADER, what FUNCTIONS names as "Function=file": an EmbeddedText of the file and its SHA-256.
#
# vorn_embed_texts(<target> HEADER <header> FUNCTIONS <Function>=<file>...): the same as a step of the build.
function(vorn_embed_texts target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "HEADER" "FUNCTIONS")
  set(output ${CMAKE_CURRENT_BINARY_DIR}/${target}_texts.cpp)
  list(TRANSFORM arg_FUNCTIONS REPLACE "^[^=]+=" "${CMAKE_CURRENT_SOURCE_DIR}/" OUTPUT_VARIABLE files)
  set(functions ${arg_FUNCTIONS})
  list(TRANSFORM functions REPLACE "=" "=${CMAKE_CURRENT_SOURCE_DIR}/")
  list(JOIN functions "|" functions)
  set(command ${CMAKE_COMMAND} -D "OUTPUT=${output}" -D "HEADER=${arg_HEADER}" -D "FUNCTIONS=${functions}"
    -P ${PROJECT_SOURCE_DIR}/cmake/EmbedTexts.cmake)
  # There at once, too, for tools that look at all sources and build none.
  if(NOT EXISTS ${output})
    execute_process(COMMAND ${command} COMMAND_ERROR_IS_FATAL ANY)
  endif()
  add_custom_command(OUTPUT ${output}
    COMMAND ${command}
    DEPENDS ${files} ${PROJECT_SOURCE_DIR}/cmake/EmbedTexts.cmake
    VERBATIM)
  target_sources(${target} PRIVATE ${output})
  set_source_files_properties(${output} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
  set(source "#include \"${HEADER}\"\n\nnamespace vorn::kit {\n")
  string(REPLACE "|" ";" pairs "${FUNCTIONS}")
  foreach(pair IN LISTS pairs)
    string(REGEX MATCH "^([^=]+)=(.*)$" _ "${pair}")
    set(function ${CMAKE_MATCH_1})
    set(path "${CMAKE_MATCH_2}")
    file(READ "${path}" text)
    file(SHA256 "${path}" sha256)
    string(APPEND source "\nEmbeddedText ${function}() {\n"
                         "  return {R\"EmbeddedText(${text})EmbeddedText\", \"${sha256}\"};\n}\n")
  endforeach()
  string(APPEND source "\n}  // namespace vorn::kit\n")
  file(WRITE "${OUTPUT}" "${source}")
endif()
