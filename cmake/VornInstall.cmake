# The installed tree: bin/ with vorn-run, vorn and its verbs, lib/ with libvorn.so (and the library that
# executes its models) and the layers, share/ with manual pages, completion and the notices of what
# others wrote of all this, the headers, and a CMake package for whoever writes or uses a runtime.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)

file(RELATIVE_PATH bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
# install_side(<side> <component>): programs and layers; whoever builds some of them installs those.
function(install_side side component)
  get_property(shipped GLOBAL PROPERTY ${side})
  foreach(target IN LISTS shipped)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "EXECUTABLE")
      set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN/${bin_to_lib})
      install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT ${component}
              OPTIONAL)
    else()
      install(TARGETS ${target} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component}
              OPTIONAL)
    endif()
  endforeach()
endfunction()
# What a verb says of itself as a manual page. Behind the programs, which are asked as they are installed.
function(install_manuals side)
  get_property(shipped GLOBAL PROPERTY ${side})
  list(FILTER shipped EXCLUDE REGEX "^vorn-(run|command|.*-layer)$")
  foreach(target IN LISTS shipped)
    install(CODE "
      if(EXISTS \"$<TARGET_FILE:${target}>\")
        set(folder \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_MANDIR}/man1\")
        file(MAKE_DIRECTORY \"\${folder}\")
        execute_process(COMMAND \"$<TARGET_FILE:${target}>\" --help=man
                        OUTPUT_FILE \"\${folder}/${target}.1\" COMMAND_ERROR_IS_FATAL ANY)
      endif()" COMPONENT manuals)
  endforeach()
endfunction()

install_side(VORN_BOARD_SIDE board)
install_side(VORN_DESK_SIDE desk)
if(NOT CMAKE_CROSSCOMPILING)
  install_manuals(VORN_BOARD_SIDE)
  install_manuals(VORN_DESK_SIDE)
endif()
install(FILES ${PROJECT_SOURCE_DIR}/kit/vorn/completion.bash RENAME vorn COMPONENT desk
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
install(TARGETS vorn_interface EXPORT vorn-targets)
install(FILES ${PROJECT_SOURCE_DIR}/include/vorn/operations.h
              ${PROJECT_SOURCE_DIR}/include/vorn/vorn.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vorn)

# Only the notices of what the tree holds; notices/README.md says which is whose.
set(notices README.md nlohmann-json-LICENSE.txt xxhash-LICENSE.txt)
if(TARGET vorn-report OR TARGET vorn-history)
  list(APPEND notices uplot-LICENSE.txt)
endif()
if(NOT VORN_LIBRARY)
  set_target_properties(libvorn PROPERTIES INSTALL_RPATH $ORIGIN)
  install(TARGETS libvorn EXPORT vorn-targets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  if(TARGET onnxruntime_shipped)
    get_target_property(shipped onnxruntime_shipped VORN_SHIPPED_FILE)
    install(PROGRAMS ${shipped} DESTINATION ${CMAKE_INSTALL_LIBDIR})
    list(APPEND notices onnxruntime-LICENSE.txt onnxruntime-ThirdPartyNotices.txt)
  endif()
endif()
list(TRANSFORM notices PREPEND ${PROJECT_SOURCE_DIR}/notices/)
install(FILES ${notices} DESTINATION ${CMAKE_INSTALL_DOCDIR})
set(board_notices nlohmann-json-LICENSE.txt xxhash-LICENSE.txt)
list(TRANSFORM board_notices PREPEND ${PROJECT_SOURCE_DIR}/notices/)
install(FILES ${board_notices} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT board EXCLUDE_FROM_ALL)

install(EXPORT vorn-targets NAMESPACE vorn:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vorn-config.cmake.in
                              ${PROJECT_BINARY_DIR}/vorn-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vorn-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vorn-config.cmake
              ${PROJECT_BINARY_DIR}/vorn-config-version.cmake
        DESTINATION ${package_dir})
