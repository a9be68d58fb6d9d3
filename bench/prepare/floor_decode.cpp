// The least that preparing JPEGs can cost: libjpeg alone decodes the files named into RGB, one
// behind the other, all of them in the same memory. With --write FOLDER BYTES it writes as many
// bytes as a tensor has into a file for each as well, with one call.
// clang-format off
#include <cstddef>
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace {

bool ReadFile(const char* path, std::vector<char>& bytes) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  bytes.resize(file ? static_cast<size_t>(file.tellg()) : 0);
  file.seekg(0);
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return file.good();
}

// Returns the number of pixels. What cannot be decoded ends the program, as is the library's way.
uint64_t Decode(const std::vector<char>& bytes, std::vector<JSAMPLE>& pixels) {
  jpeg_error_mgr errors{};
  jpeg_decompress_struct info{};
  info.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&info);
  jpeg_mem_src(&info, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  jpeg_read_header(&info, TRUE);
  info.out_color_space = JCS_RGB;
  jpeg_start_decompress(&info);
  const size_t rowBytes = size_t{info.output_width} * 3;
  if (pixels.size() < rowBytes * info.output_height) pixels.resize(rowBytes * info.output_height);
  while (info.output_scanline < info.output_height) {
    JSAMPROW row = pixels.data() + info.output_scanline * rowBytes;
    jpeg_read_scanlines(&info, &row, 1);
  }
  const uint64_t count = uint64_t{info.output_width} * info.output_height;
  jpeg_finish_decompress(&info);
  jpeg_destroy_decompress(&info);
  return count;
}

bool WriteFile(const std::string& path, const std::vector<char>& bytes) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  const bool isWritten =
      write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  return close(fd) == 0 && isWritten;
}

}  // namespace

int main(int argc, char** argv) {
  const bool isWriting = argc > 3 && std::string_view(argv[1]) == "--write";
  const std::vector<char> tensor(isWriting ? std::strtoull(argv[3], nullptr, 10) : 0, 'x');
  std::vector<char> bytes;
  std::vector<JSAMPLE> pixels;
  uint64_t count = 0;
  for (int i = isWriting ? 4 : 1; i < argc; ++i) {
    if (!ReadFile(argv[i], bytes)) {
      std::fprintf(stderr, "floor_decode: %s cannot be read\n", argv[i]);
      return 1;
    }
    count += Decode(bytes, pixels);
    if (!isWriting) continue;
    const std::string path = std::string(argv[2]) + "/" + std::to_string(i) + ".bin";
    if (WriteFile(path, tensor)) continue;
    std::fprintf(stderr, "floor_decode: %s cannot be written\n", path.c_str());
    return 1;
  }
  std::printf("%llu pixels\n", static_cast<unsigned long long>(count));
  return 0;
}
