#include "fuzz/scratch_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace fuzz {
namespace {

namespace fs = std::filesystem;

std::string MakeFolder(const fs::path& parent) {
  std::string pattern = (parent / "vorn-fuzz-XXXXXX").string();
  return mkdtemp(pattern.data()) == nullptr ? "" : pattern;
}

std::string ReadAll(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (file < 0 || fstat(file, &status) != 0) std::abort();
  std::string bytes(static_cast<size_t>(status.st_size), '\0');
  if (read(file, bytes.data(), bytes.size()) != status.st_size) std::abort();
  close(file);
  return bytes;
}

}  // namespace

ScratchFolder::ScratchFolder() : path_(MakeFolder("/dev/shm")) {
  if (path_.empty()) path_ = MakeFolder(fs::temp_directory_path());
  if (path_.empty()) std::abort();
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void ScratchFolder::Write(const std::string& name, const std::string& bytes) {
  const auto last = written_.find(name);
  if (last != written_.end() && last->second == bytes) return;
  const std::string path = path_ + "/" + name;
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0 || write(file, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
    std::abort();
  }
  close(file);
  written_[name] = bytes;
}

std::map<std::string, std::string> ScratchFolder::Take(const std::string& name) {
  std::map<std::string, std::string> files;
  const std::string folder = path_ + "/" + name;
  DIR* entries = opendir(folder.c_str());
  if (entries == nullptr) return files;
  while (const dirent* entry = readdir(entries)) {
    const std::string file = entry->d_name;
    if (file == "." || file == "..") continue;
    files[file] = ReadAll(folder + "/" + file);
    unlink((folder + "/" + file).c_str());
  }
  closedir(entries);
  rmdir(folder.c_str());
  return files;
}

}  // namespace fuzz
