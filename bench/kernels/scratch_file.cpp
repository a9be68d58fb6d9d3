#include "kernels/scratch_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <vector>

namespace bench {

ScratchFile::ScratchFile() {
  static std::atomic<int> made = 0;
  const std::string name = "vorn-bench." + std::to_string(getpid()) + "." + std::to_string(made++);
  path_ = std::filesystem::temp_directory_path() / name;
}

ScratchFile::~ScratchFile() { Remove(); }

void ScratchFile::Fill(size_t size) const {
  const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::vector<int> piece(1 << 18);
  std::iota(piece.begin(), piece.end(), 1);
  const size_t pieceBytes = piece.size() * sizeof(int);
  for (size_t done = 0; done < size; done += pieceBytes) {
    WriteAll(fd, reinterpret_cast<const char*>(piece.data()), std::min(pieceBytes, size - done));
  }
  close(fd);
}

void ScratchFile::Remove() const { unlink(path_.c_str()); }

void WriteAll(int fd, const char* data, size_t size) {
  while (size > 0) {
    const ssize_t put = write(fd, data, size);
    if (put <= 0) {
      std::perror("the benchmark's scratch file");
      std::exit(1);
    }
    data += put;
    size -= static_cast<size_t>(put);
  }
}

}  // namespace bench
