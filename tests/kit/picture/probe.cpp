// Decoding and resizing behind a C interface, for the scripts here: compare_with_originals.py loads
// it.
#include <algorithm>
#include <cstring>
#include <exception>
#include <string>

#include "kit/picture/decode.h"
#include "kit/picture/resize.h"

namespace {

namespace kit = vorn::kit;

kit::Picture g_picture;
std::string g_text;

}  // namespace

// C's names.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" {

// What the last call said: what was wrong, or what the decoder remarks.
const char* picture_text() { return g_text.c_str(); }

const void* picture_pixels() { return g_picture.pixels.data(); }

// info: width, height, channels, type (0 uint8, 1 uint16, 2 float32), orientation. 0, or -1.
int picture_decode(const char* bytes, size_t size, uint32_t* info) {
  g_text.clear();
  try {
    kit::DecodedPicture decoded = kit::DecodePicture("probe", std::string_view(bytes, size));
    g_picture = std::move(decoded.picture);
    info[0] = g_picture.width;
    info[1] = g_picture.height;
    info[2] = g_picture.channels;
    info[3] = static_cast<uint32_t>(g_picture.type);
    info[4] = static_cast<uint32_t>(decoded.orientation);
    for (const std::string& remark : decoded.remarks) g_text += remark + "\n";
    return 0;
  } catch (const std::exception& error) {
    g_text = error.what();
    return -1;
  }
}

// info: width, height, channels, type, new width, new height; box: four edges or null. 0, or -1.
int picture_resize(const void* pixels, const uint32_t* info, const char* rule, const float* box) {
  try {
    kit::Picture picture =
        kit::MakePicture(info[0], info[1], info[2], static_cast<kit::PixelType>(info[3]));
    std::memcpy(picture.pixels.data(), pixels, picture.pixels.size());
    std::optional<kit::ResizeBox> part;
    if (box != nullptr) part = kit::ResizeBox{box[0], box[1], box[2], box[3]};
    g_picture = kit::Resize(picture, info[4], info[5], kit::ResizeRuleNamed(rule).value(), part);
    return 0;
  } catch (const std::exception& error) {
    g_text = error.what();
    return -1;
  }
}

}  // extern "C"
// NOLINTEND(readability-identifier-naming)
