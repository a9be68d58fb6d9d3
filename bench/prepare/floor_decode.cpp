// The least that preparing pictures can cost: decodes the files named, one behind the other.
#include <cstdint>
#include <cstdio>
#include <exception>

#include "kit/picture/decode.h"

int main(int argc, char** argv) {
  uint64_t pixels = 0;
  try {
    for (int i = 1; i < argc; ++i) {
      const vorn::kit::DecodedPicture decoded = vorn::kit::DecodePictureFile(argv[i]);
      pixels += uint64_t{decoded.picture.width} * decoded.picture.height;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "floor_decode: %s\n", error.what());
    return 1;
  }
  std::printf("%llu pixels\n", static_cast<unsigned long long>(pixels));
  return 0;
}
