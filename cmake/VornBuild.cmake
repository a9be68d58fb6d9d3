# Targets and helpers that every folder uses: compile options, the place of the products, the
# library helper, and the runtime that vorn-run is linked with.

# What every target of ours is compiled with. Linked PRIVATE, so none of it reaches a user.
add_library(vorn_options INTERFACE)
target_compile_features(vorn_options INTERFACE cxx_std_20)
target_compile_options(vorn_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # This version sees overlaps in joining strings that are not there, and more of the kind where the
  # system's headers are precompiled, which makes them count as ours.
  target_compile_options(vorn_options INTERFACE -Wno-restrict
                         "$<$<BOOL:${VORN_PRECOMPILE}>:-Wno-array-bounds;-Wno-stringop-overflow>")
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # The one reads more into -Wconversion than the other; both judge by what GCC means.
  target_compile_options(vorn_options INTERFACE -Wno-sign-conversion)
endif()
if(VORN_WARNINGS_AS_ERRORS)
  target_compile_options(vorn_options INTERFACE -Werror)
endif()
if(VORN_SANITIZE)
  target_compile_options(vorn_options INTERFACE -fsanitize=${VORN_SANITIZE}
                         -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vorn_options INTERFACE -fsanitize=${VORN_SANITIZE})
endif()
if(VORN_COVERAGE)
  target_compile_options(vorn_options INTERFACE --coverage)
  target_link_options(vorn_options INTERFACE --coverage)
  # Every program writes its counters also when a signal ends it, which some tests are about.
  target_sources(vorn_options INTERFACE
    $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:${PROJECT_SOURCE_DIR}/tests/coverage/write_counters.cpp>)
endif()

# vorn_precompile(<name> <header>...): a target whose headers are read once for all that reuse them by
# vorn_reuse_precompiled(<target> <name>). Those have to be compiled with its options. A file still
# includes what it uses: scripts/lint.sh compiles without.
function(vorn_precompile name)
  if(NOT VORN_PRECOMPILE)
    return()
  endif()
  file(CONFIGURE OUTPUT ${name}.cpp CONTENT "// Nothing but the headers.\n")
  add_library(${name} STATIC EXCLUDE_FROM_ALL ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
  set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF)
  target_link_libraries(${name} PRIVATE vorn_options)
  target_precompile_headers(${name} PRIVATE ${ARGN})
endfunction()

function(vorn_reuse_precompiled target name)
  if(VORN_PRECOMPILE)
    target_precompile_headers(${target} REUSE_FROM ${name})
  endif()
endfunction()

vorn_precompile(vorn_precompiled <algorithm> <memory> <optional> <span> <string> <vector>)
if(VORN_PRECOMPILE)
  set_target_properties(vorn_precompiled PROPERTIES POSITION_INDEPENDENT_CODE ON
                        CXX_VISIBILITY_PRESET hidden)
endif()

# vorn_unite(<target>): compiles its files several at a time where VORN_UNITY is set, so that they read
# a header and make a template once. Their anonymous namespaces are one then: helpers of one name get
# in each other's way, which the compiler tells. A missing include it does not; other builds do.
function(vorn_unite target)
  # Fewer files at a time take longer, more of them leave the second of two cores idle.
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${VORN_UNITY} UNITY_BUILD_BATCH_SIZE 16)
endfunction()

# vorn_library(<name> SOURCES <file>... [LINKS <target>...]): a static library of one folder.
# Files include by their path below the source root ("common/log.h").
function(vorn_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "ROOT" "SOURCES;LINKS")
  add_library(${name} STATIC ${arg_SOURCES})
  set_target_properties(${name} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON
                        CXX_VISIBILITY_PRESET hidden)
  target_include_directories(${name} PUBLIC ${arg_ROOT})
  target_link_libraries(${name} PUBLIC ${arg_LINKS} PRIVATE vorn_options)
  vorn_reuse_precompiled(${name} vorn_precompiled)
  vorn_unite(${name})
endfunction()

# The products lie side by side at the top of the build tree and find each other there, whatever
# folder the tree is moved to. RUNPATH, not RPATH: LD_LIBRARY_PATH has to come first.
function(vorn_product name)
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
    CXX_EXTENSIONS OFF
    BUILD_RPATH_USE_ORIGIN ON)
  target_link_options(${name} PRIVATE -Wl,--enable-new-dtags -Wl,--as-needed)
endfunction()

# vorn_ship(<name> BOARD_SIDE|DESK_SIDE): a program or layer that is built and installed for people.
# What runs on a board runs at a desk, too.
function(vorn_ship name side)
  set_property(GLOBAL APPEND PROPERTY VORN_${side} ${name})
endfunction()

# vorn_link_for_old_systems(<name> [OPENS_LIBRARIES]): the C++ library goes in, which takes less time to
# start and asks less of an old system. Its symbols stay inside: a runtime may bring a C++ library of
# its own. A sanitizer wants the shared one. OPENS_LIBRARIES for a program that calls dlopen.
function(vorn_link_for_old_systems name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "OPENS_LIBRARIES" "" "")
  if(VORN_SANITIZE)
    return()
  endif()
  target_link_options(${name} PRIVATE -static-libstdc++ -static-libgcc -Wl,--exclude-libs,ALL)
  target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/shared/older_c_library.c)
  if(arg_OPENS_LIBRARIES)
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/shared/older_loader.c)
    target_link_options(${name} PRIVATE LINKER:--push-state,--no-as-needed,-l:libdl.so.2,--pop-state)
  endif()
endfunction()

# vorn_import_runtime(<file>): makes `libvorn` the runtime in that file instead of ours. Its own
# dependencies are its own business, so what it leaves undefined is not asked for here.
function(vorn_import_runtime file)
  if(NOT EXISTS ${file})
    message(FATAL_ERROR "VORN_LIBRARY names ${file}, which does not exist. "
                        "Give the path of a libvorn.so, or leave it empty for the host runtime.")
  endif()
  add_library(libvorn SHARED IMPORTED GLOBAL)
  set_target_properties(libvorn PROPERTIES IMPORTED_LOCATION ${file})
  execute_process(COMMAND ${CMAKE_READELF} -d ${file} OUTPUT_VARIABLE dynamic ERROR_QUIET)
  if(NOT dynamic MATCHES "\\(SONAME\\)")
    # Without a soname the linker would write down the file's path.
    set_target_properties(libvorn PROPERTIES IMPORTED_NO_SONAME ON)
  endif()
  target_link_libraries(libvorn INTERFACE vorn_interface)
  target_link_options(libvorn INTERFACE -Wl,--allow-shlib-undefined)
endfunction()
