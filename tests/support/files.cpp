#include "support/files.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace support {

namespace fs = std::filesystem;

TempDir::TempDir() {
  std::string pattern = (fs::canonical(fs::temp_directory_path()) / "vorn-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder at " + pattern);
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;  // a folder that stays is a nuisance, not a failure
  fs::remove_all(path_, ignored);
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file.is_open()) throw std::runtime_error("cannot read " + path.string());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void WriteFile(const fs::path& path, const std::string& bytes) {
  if (path.has_parent_path()) fs::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path.string());
}

void WriteSparseFile(const fs::path& path, uint64_t size) {
  WriteFile(path, "");
  fs::resize_file(path, size);
}

std::map<std::string, std::string> ReadTree(const fs::path& folder) {
  std::map<std::string, std::string> files;
  if (!fs::is_directory(folder)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    std::error_code ignored;  // a link in a circle is not a file
    if (!entry.is_regular_file(ignored)) continue;
    files[fs::relative(entry.path(), folder).string()] = ReadFile(entry.path());
  }
  return files;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

std::string CountingBytes(size_t count, unsigned start) {
  std::string bytes(count, '\0');
  for (size_t at = 0; at < count; ++at) bytes[at] = static_cast<char>(start + at);
  return bytes;
}

std::string Hex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string Unhex(const std::string& digits) {
  std::string bytes;
  for (size_t at = 0; at + 1 < digits.size(); at += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
  }
  return bytes;
}

}  // namespace support
