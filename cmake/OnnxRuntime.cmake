# Where the library that executes models is. Leaves:
#
#   onnxruntime_headers           interface target with the headers, as system headers
#   VORN_ONNXRUNTIME_SONAME       the name to load the library by
#   onnxruntime_shipped           only where the library is not the system's: copies it to the top of
#                                 the build tree, beside libvorn.so; property VORN_SHIPPED_FILE says
#                                 what has to be installed beside libvorn.so
#
# Nothing is linked with the library: libvorn.so loads it when the runtime is brought up, so that it
# never shows among the libraries that a program depends on.
find_path(ONNXRUNTIME_INCLUDE_DIR onnxruntime_cxx_api.h
          PATH_SUFFIXES onnxruntime onnxruntime/core/session
          DOC "Folder of onnxruntime_cxx_api.h; setup.sh provides one where the system has none")
find_library(ONNXRUNTIME_LIBRARY onnxruntime
             DOC "libonnxruntime.so; setup.sh provides one where the system has none")

if(ONNXRUNTIME_INCLUDE_DIR AND ONNXRUNTIME_LIBRARY)
  set(onnxruntime_include ${ONNXRUNTIME_INCLUDE_DIR})
  set(onnxruntime_library ${ONNXRUNTIME_LIBRARY})
else()
  set(onnxruntime_include ${PROJECT_SOURCE_DIR}/.deps/onnxruntime/include)
  set(onnxruntime_library ${PROJECT_SOURCE_DIR}/.deps/onnxruntime/lib/libonnxruntime.so.1)
endif()
if(NOT EXISTS ${onnxruntime_include}/onnxruntime_cxx_api.h OR NOT EXISTS ${onnxruntime_library})
  message(FATAL_ERROR "ONNX Runtime, which executes the models, is not here. Run scripts/setup.sh.")
endif()

execute_process(COMMAND ${CMAKE_READELF} -d ${onnxruntime_library}
                OUTPUT_VARIABLE dynamic COMMAND_ERROR_IS_FATAL ANY)
if(NOT dynamic MATCHES "\\(SONAME\\)[^\n]*\\[([^]\n]+)\\]")
  message(FATAL_ERROR "${onnxruntime_library} has no soname. Run scripts/setup.sh.")
endif()
set(VORN_ONNXRUNTIME_SONAME ${CMAKE_MATCH_1})

add_library(onnxruntime_headers INTERFACE)
target_include_directories(onnxruntime_headers SYSTEM INTERFACE ${onnxruntime_include})

cmake_path(GET onnxruntime_library PARENT_PATH onnxruntime_folder)
if(NOT onnxruntime_folder IN_LIST CMAKE_CXX_IMPLICIT_LINK_DIRECTORIES)
  set(shipped ${PROJECT_BINARY_DIR}/${VORN_ONNXRUNTIME_SONAME})
  add_custom_command(OUTPUT ${shipped}
                     COMMAND ${CMAKE_COMMAND} -E copy ${onnxruntime_library} ${shipped}
                     DEPENDS ${onnxruntime_library}
                     COMMENT "Placing ${VORN_ONNXRUNTIME_SONAME} beside libvorn.so"
                     VERBATIM)
  add_custom_target(onnxruntime_shipped ALL DEPENDS ${shipped})
  set_target_properties(onnxruntime_shipped PROPERTIES VORN_SHIPPED_FILE ${shipped})
endif()
message(STATUS "ONNX Runtime: ${onnxruntime_library} (${VORN_ONNXRUNTIME_SONAME})")
