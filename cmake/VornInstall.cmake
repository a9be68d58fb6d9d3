# The installed tree: bin/ with vorn-run, vorn and its verbs, lib/ with libvorn.so (and the library that
# executes its models) and the layers, the headers, a CMake package for whoever writes or uses a runtime,
# and the notices of what others wrote of all this.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vorn)

file(RELATIVE_PATH bin_to_lib /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
set_target_properties(vorn-run vorn-command vorn-inspect vorn-trace PROPERTIES INSTALL_RPATH $ORIGIN/${bin_to_lib})
install(TARGETS vorn-run RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Whoever builds vorn-run alone installs it alone.
install(TARGETS vorn-command vorn-inspect vorn-trace
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} OPTIONAL)
install(TARGETS vorn-trace-layer LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} OPTIONAL)
install(TARGETS vorn_interface EXPORT vorn-targets)
install(FILES ${PROJECT_SOURCE_DIR}/include/vorn/operations.h
              ${PROJECT_SOURCE_DIR}/include/vorn/vorn.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vorn)

# Only the notices of what the tree holds; notices/README.md says which is whose.
set(notices README.md nlohmann-json-LICENSE.txt xxhash-LICENSE.txt)
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

install(EXPORT vorn-targets NAMESPACE vorn:: DESTINATION ${package_dir})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vorn-config.cmake.in
                              ${PROJECT_BINARY_DIR}/vorn-config.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vorn-config-version.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vorn-config.cmake
              ${PROJECT_BINARY_DIR}/vorn-config-version.cmake
        DESTINATION ${package_dir})
