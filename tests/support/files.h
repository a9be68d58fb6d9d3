// Folders and files of a test, and the bytes in them.
#ifndef VORN_TESTS_SUPPORT_FILES_H_
#define VORN_TESTS_SUPPORT_FILES_H_

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace support {

/// A fresh folder, which is removed with all that is in it on destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  /// Absolute, without symbolic links.
  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// The whole file. Throws std::runtime_error if it cannot be read.
[[nodiscard]] std::string ReadFile(const std::filesystem::path& path);

/// Writes the whole file and makes the folders above it. Throws as above.
void WriteFile(const std::filesystem::path& path, const std::string& bytes);

/// Makes a file that is `size` bytes long and takes no room: it reads as zeros.
void WriteSparseFile(const std::filesystem::path& path, uint64_t size);

/// All regular files below a folder, by their path relative to it. Empty if there is no folder.
[[nodiscard]] std::map<std::string, std::string> ReadTree(const std::filesystem::path& folder);

[[nodiscard]] std::vector<std::string> SplitLines(const std::string& text);

/// The values as they lie in memory: Bytes<float>({1, 2}).
template <typename T>
[[nodiscard]] std::string Bytes(const std::vector<T>& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

/// `count` bytes start, start + 1, ... modulo 256: no two neighbours alike.
[[nodiscard]] std::string CountingBytes(size_t count, unsigned start = 0);

[[nodiscard]] std::string Hex(const std::string& bytes);
[[nodiscard]] std::string Unhex(const std::string& digits);

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_FILES_H_
