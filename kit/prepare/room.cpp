#include "kit/prepare/room.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>

#include "kit/common/file_place.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// A server in a network may tell the bytes that it likes to be asked for at once.
constexpr uint64_t kMostBlockBytes = 4096;
constexpr uint64_t kStatBlockBytes = 512;

uint64_t Product(uint64_t one, uint64_t other) {
  uint64_t product = 0;
  return __builtin_mul_overflow(one, other, &product) ? UINT64_MAX : product;
}

uint64_t Sum(uint64_t one, uint64_t other) {
  uint64_t sum = 0;
  return __builtin_add_overflow(one, other, &sum) ? UINT64_MAX : sum;
}

uint64_t InBlocks(uint64_t bytes, uint64_t blockBytes) {
  const uint64_t blocks = bytes / blockBytes + (bytes % blockBytes > 0 ? 1 : 0);
  return Product(blocks, blockBytes);
}

// The first one from here on up that is there.
std::string ThatIsThere(std::string folder) {
  while (!IsThere(folder)) {
    const size_t slash = folder.rfind('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    folder.resize(slash);
  }
  return folder;
}

}  // namespace

std::optional<Room> RoomAt(const std::string& folder) {
  struct statvfs about {};
  if (statvfs(ThatIsThere(folder).c_str(), &about) != 0) return std::nullopt;
  Room room;
  room.bytes = Product(about.f_bavail, about.f_frsize);
  room.blockBytes = std::clamp<uint64_t>(about.f_frsize, 1, kMostBlockBytes);
  if (about.f_files != 0) room.files = about.f_favail;
  return room;
}

Room TakenIn(const std::string& folder) {
  Room taken;
  taken.files = 0;
  if (!IsThere(folder)) return taken;
  for (const std::string& name : NamesIn(folder)) {
    struct stat about {};
    if (lstat((folder + "/" + name).c_str(), &about) != 0 || !S_ISREG(about.st_mode)) continue;
    taken.bytes =
        Sum(taken.bytes, Product(static_cast<uint64_t>(about.st_blocks), kStatBlockBytes));
    ++*taken.files;
  }
  return taken;
}

std::string WhyNoRoom(std::span<const FilesToMake> files, const Room& room) {
  uint64_t bytes = 0;
  uint64_t count = 0;
  for (const FilesToMake& one : files) {
    bytes = Sum(bytes, Product(one.count, InBlocks(one.bytesEach, room.blockBytes)));
    count = Sum(count, one.count);
  }
  if (bytes > room.bytes) {
    return "they take " + SizeText(bytes) + " of whole blocks, and there is room for " +
           SizeText(room.bytes);
  }
  if (room.files && count > *room.files) {
    return "they are " + Counted(count, "file") + ", and there is room for " +
           std::to_string(*room.files);
  }
  return "";
}

}  // namespace vorn::kit
