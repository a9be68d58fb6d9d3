// Reads and measures the model file.
#include "model/model_file.h"

#include "common/file.h"
#include "common/log.h"
#include "common/path.h"
#include "common/runtime_memory.h"

namespace vorn::run {
namespace {

// Opens the file and takes its length; returns it open, or closed after a message.
FileDescriptor OpenNonEmpty(const std::string& path, uint32_t& length) {
  FileDescriptor file = OpenForReading(path);
  if (!file.IsOpen()) {
    PrintLine("[ERROR] open file %s failed\n", path.c_str());
    return file;
  }
  length = static_cast<uint32_t>(SeekEnd(file));
  if (length == 0) {
    PrintLine("[ERROR] binfile is empty, filename is %s\n", path.c_str());
    return FileDescriptor();
  }
  return file;
}

}  // namespace

void* ReadBinFile(const std::string& path, uint32_t& size) {
  if (CheckPathIsFile(path) != 0) return nullptr;
  uint32_t length = 0;
  const FileDescriptor file = OpenNonEmpty(path, length);
  if (!file.IsOpen()) return nullptr;

  // From 2 GiB on the length turns negative here and is widened with its sign: the request is then
  // one that no runtime can meet.
  const auto request = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(length)));
  void* block = MallocRuntimeMemory(request);
  if (block == nullptr) {
    PrintLine("[ERROR] malloc device buffer failed. size is %u\n", length);
    return nullptr;
  }
  const size_t got = ReadFullyAt(file.Get(), block, length, 0);
  ZeroBuffer(static_cast<char*>(block) + got, length - got);
  size = length;
  return block;
}

int GetFileSize(const std::string& path, uint32_t& size) {
  uint32_t length = 0;
  if (!OpenNonEmpty(path, length).IsOpen()) return 1;
  size = length;
  return 0;
}

}  // namespace vorn::run
