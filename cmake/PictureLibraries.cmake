# The libraries that decode pictures, as the target `picture_libraries` if all of them are there. Only a
# desk has pictures, so a build for a board does without; scripts/setup.sh installs them.
if(NOT CMAKE_CROSSCOMPILING)
  find_package(JPEG)
  find_package(PNG)
  find_package(TIFF)
  find_path(WEBP_INCLUDE_DIR webp/decode.h)
  find_library(WEBP_LIBRARY webp)
  find_library(WEBP_DEMUX_LIBRARY webpdemux)
  mark_as_advanced(WEBP_INCLUDE_DIR WEBP_LIBRARY WEBP_DEMUX_LIBRARY)
endif()
if(JPEG_FOUND AND PNG_FOUND AND TIFF_FOUND AND WEBP_INCLUDE_DIR AND WEBP_LIBRARY AND
   WEBP_DEMUX_LIBRARY)
  add_library(picture_libraries INTERFACE)
  target_link_libraries(picture_libraries INTERFACE JPEG::JPEG PNG::PNG TIFF::TIFF
                        ${WEBP_LIBRARY} ${WEBP_DEMUX_LIBRARY})
  target_include_directories(picture_libraries SYSTEM INTERFACE ${WEBP_INCLUDE_DIR})
else()
  message(STATUS "No pictures: libjpeg-turbo, libpng, libwebp and libtiff are not all there to "
                 "build with; scripts/setup.sh installs them")
endif()
