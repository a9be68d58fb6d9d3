# libzip, which programs of the desk read archives with. Leaves the interface target `libzip`. Where the
# library is missing, as on a board or for another machine, what needs it says so when it is built.
# The library's own package file wants programs as well that Debian ships apart, and is not used.
find_path(LIBZIP_INCLUDE_DIR zip.h DOC "Folder of libzip's zip.h; Debian package libzip-dev")
find_library(LIBZIP_LIBRARY zip DOC "libzip; Debian package libzip-dev")

add_library(libzip INTERFACE)
if(LIBZIP_INCLUDE_DIR AND LIBZIP_LIBRARY)
  target_include_directories(libzip SYSTEM INTERFACE ${LIBZIP_INCLUDE_DIR})
  target_link_libraries(libzip INTERFACE ${LIBZIP_LIBRARY})
else()
  add_custom_target(libzip_is_missing
                    COMMAND ${CMAKE_COMMAND} -E echo "libzip, for archives of arrays, is not here. Run scripts/setup.sh."
                    COMMAND ${CMAKE_COMMAND} -E false)
  add_dependencies(libzip libzip_is_missing)
endif()
