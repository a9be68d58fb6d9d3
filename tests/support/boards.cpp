#include "support/boards.h"

#include <stdexcept>

namespace support {
namespace {

Outcome RunScript(std::vector<std::string> words) {
  Command command;
  command.program = VORN_BEDS_FOLDER "/sshd.sh";
  command.arguments = std::move(words);
  return RunCommand(command);
}

void NeedScript(std::vector<std::string> words) {
  const Outcome outcome = RunScript(std::move(words));
  if (outcome.status != 0) throw std::runtime_error(outcome.Describe());
}

}  // namespace

bool CanHaveBoards() {
  Command look;
  look.program = "/bin/sh";
  look.arguments = {"-c", "PATH=$PATH:/usr/sbin; command -v sshd && command -v ssh"};
  return RunCommand(look).status == 0;
}

Boards::Boards(int count, const std::vector<std::string>& lines) {
  std::vector<std::string> words{"start", folder_.Path(), std::to_string(count)};
  words.insert(words.end(), lines.begin(), lines.end());
  try {
    NeedScript(std::move(words));
  } catch (...) {
    (void)RunScript({"stop", folder_.Path()});
    throw;
  }
}

Boards::~Boards() { (void)RunScript({"stop", folder_.Path()}); }

void Boards::Do(const std::string& action, const std::string& board) const {
  NeedScript({action, folder_.Path(), board});
}

}  // namespace support
