// Whether files that are to be made find room.
#ifndef VORN_KIT_PREPARE_ROOM_H_
#define VORN_KIT_PREPARE_ROOM_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vorn::kit {

struct FilesToMake {
  uint64_t count = 0;
  uint64_t bytesEach = 0;
};

struct Room {
  uint64_t bytes = 0;
  uint64_t blockBytes = 1;        ///< a file takes whole blocks
  std::optional<uint64_t> files;  ///< none where the file system does not count them
};

/// What the disk still takes where `folder` is, or will be made. None where it does not say.
[[nodiscard]] std::optional<Room> RoomAt(const std::string& folder);

/// What the files in a folder take, which are replaced; nothing where there is no folder.
[[nodiscard]] Room TakenIn(const std::string& folder);

/// Empty where the files find room: "they take 1.2 GiB, and there is room for 64 bytes".
[[nodiscard]] std::string WhyNoRoom(std::span<const FilesToMake> files, const Room& room);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_ROOM_H_
