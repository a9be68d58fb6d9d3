// The boards of a fleet, as a person wrote them down.
//
//     {"schema": 1,
//      "boards": [{"name": "b1", "host": "root@192.0.2.1", "slots": 1, "work": "/data/fleet",
//                  "runtime": "/opt/vorn/lib/libvorn.so", "config": "board.json",
//                  "tools": "vorn-0.1.0-aarch64.tar.gz", "environment": {"NAME": "value"},
//                  "ssh": ["-p", "2222"]}]}
//
// Only the host is needed. Paths of this machine count from the file's own folder.
#ifndef VORN_KIT_FLEET_BOARDS_H_
#define VORN_KIT_FLEET_BOARDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorn::kit {

struct Board {
  std::string name;    ///< of letters, digits and "._-"; the host's where none is given
  std::string host;    ///< as ssh takes it
  uint64_t slots = 1;  ///< attempts that run there at once
  std::string work = ".vorn-fleet";  ///< a folder there, from the home of the login on
  std::string runtime;               ///< a libvorn.so there; empty: that which vorn-run finds
  std::string config;                ///< a file here, instead of the plan's; empty: the plan's
  std::string tools;  ///< a folder or archive here of what runs there; empty: this program's folder
  std::vector<std::pair<std::string, std::string>> environment;
  std::vector<std::string> ssh;  ///< words for ssh, before the host

  bool operator==(const Board&) const = default;
};

/// Throws a Fault of kInput that names the file, the member as it stands there
/// ("boards[1].slots", of the first board 0), what it takes and what it has.
[[nodiscard]] std::vector<Board> ReadBoards(const std::string& path);

/// The same out of a text, with a JsonError; `folder` is the file's.
[[nodiscard]] std::vector<Board> BoardsFromJson(const std::string& text, const std::string& folder);

/// As ReadBoards takes them, with all members.
[[nodiscard]] std::string ToJson(const std::vector<Board>& boards);

/// A slot of a board: both of all boards in their order.
struct BoardSlot {
  size_t board = 0;   ///< its place
  uint64_t slot = 0;  ///< from 1
};
[[nodiscard]] std::vector<BoardSlot> SlotsOf(const std::vector<Board>& boards);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_BOARDS_H_
