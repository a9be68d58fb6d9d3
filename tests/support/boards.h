// Boards to test with, on this machine: an sshd each, by tests/beds/sshd.sh.
#ifndef VORN_TESTS_SUPPORT_BOARDS_H_
#define VORN_TESTS_SUPPORT_BOARDS_H_

#include <filesystem>
#include <string>
#include <vector>

#include "support/command.h"
#include "support/files.h"

namespace support {

/// Whether there is an sshd at all. A test without one is skipped.
[[nodiscard]] bool CanHaveBoards();

/// b1 to bN, which are there until this ends: with them ends what they started.
class Boards {
 public:
  /// The lines go into each sshd_config. Throws std::runtime_error where one does not start.
  explicit Boards(int count, const std::vector<std::string>& lines = {});
  ~Boards();
  Boards(const Boards&) = delete;
  Boards& operator=(const Boards&) = delete;

  /// For ssh -F.
  [[nodiscard]] std::string SshConfig() const { return folder_.Path() / "ssh_config"; }

  /// What sshd.sh takes before a folder and a board: "kill", "again", "cut", "freeze", "thaw".
  void Do(const std::string& action, const std::string& board) const;

 private:
  TempDir folder_;
};

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_BOARDS_H_
