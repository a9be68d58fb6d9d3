#include "kit/picture/encode_png.h"

#include <png.h>

#include <array>

#include "kit/common/fault.h"

namespace vorn::kit {

std::string EncodePng(const Picture& picture) {
  constexpr std::array<png_uint_32, 5> kFormats{0, PNG_FORMAT_GRAY, PNG_FORMAT_GA, PNG_FORMAT_RGB,
                                                PNG_FORMAT_RGBA};
  if (picture.type != PixelType::kUint8 || picture.channels < 1 || picture.channels > 4) {
    throw Fault(ExitStatus::kOwnFault, "a PNG of " + picture.Description() + " was asked for");
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = picture.width;
  image.height = picture.height;
  image.format = kFormats[picture.channels];
  const auto write = [&](void* room, png_alloc_size_t& bytes) {
    const int isWritten =
        png_image_write_to_memory(&image, room, &bytes, 0, picture.pixels.data(), 0, nullptr);
    if (isWritten != 0) return;
    const std::string reason = image.message;
    png_image_free(&image);
    throw Fault(ExitStatus::kLimit, "a PNG could not be made: " + reason);
  };
  png_alloc_size_t bytes = 0;
  write(nullptr, bytes);
  std::string file(bytes, '\0');
  write(file.data(), bytes);
  file.resize(bytes);
  return file;
}

}  // namespace vorn::kit
