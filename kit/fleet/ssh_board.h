// A board that is reached by ssh, and needs nothing but a shell, tar, find and a libvorn.so.
//
// What it has lies in its work folder:
//
//     WORK/tools/ID/        programs and layer, by the hash of all of them
//     WORK/files/HASH       models, configurations, inputs by their hashes; what is there is not
//                           sent again
//     WORK/jobs/BOARD=ID.BOOT.PID/
//                           an attempt, as long as its shell runs
//     WORK/cache/           what runs there keeps
//
// Nothing of a name is left to a shell's mercy: scripts get theirs as quoted words, and lists as
// lines, in which files have hashes for names.
#ifndef VORN_KIT_FLEET_SSH_BOARD_H_
#define VORN_KIT_FLEET_SSH_BOARD_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kit/fleet/boards.h"
#include "kit/fleet/journal.h"
#include "kit/fleet/tools.h"
#include "kit/launch/program.h"

namespace vorn::kit {

/// The word as a POSIX shell takes it, whatever it holds.
[[nodiscard]] std::string ShellWord(const std::string& word);

/// What ssh is to hand to the login's shell, so that /bin/sh runs the script with these words,
/// whatever shell that is: a POSIX one, csh or fish.
[[nodiscard]] std::string BoardCommand(const std::string& script,
                                       const std::vector<std::string>& words);

/// A file that has to be on the board.
struct BoardFile {
  std::string hash;  ///< of XXH3-128
  std::string path;  ///< here
  bool isInput = false;
};

/// What is to be done there.
struct BoardWork {
  std::string id;                 ///< of letters, digits and '-'
  std::vector<BoardFile> files;   ///< that it needs
  std::vector<std::string> list;  ///< lines for vorn-launch, files as FileInJob has them
  /// Behind vorn-launch, but for list, run directory and limits.
  std::vector<std::string> words;
  /// By the path from the job's folder on, the hash of a file that is to be found there.
  std::vector<std::pair<std::string, std::string>> links;
  std::string folder;  ///< here: run/ comes to lie in it
  std::optional<std::chrono::seconds> limit;
  /// Where there is none: asked while it runs whether there is one by now.
  std::function<std::optional<std::chrono::seconds>()> laterLimit{};
  /// Programs, and files that are no inputs, are sent although they are there.
  bool areFilesStale = false;
  std::function<void()> begin{};  ///< notes that it begins, where that was left to whoever does it
};

/// Who of several that bring files to a slot may launch there. Both may be empty: there is nobody
/// else.
struct LaunchTurn {
  std::function<bool()> take;  ///< waits for it; false: it is not to be launched here any more
  std::function<void()> end;   ///< called once the program on the board has ended, maybe twice
};

/// A file of the board as its jobs name it: from a job's folder on.
[[nodiscard]] std::string FileInJob(const std::string& hash);

/// How it went. The run directory is there if the launch left one, whatever it ended with.
struct BoardEnd {
  bool wasStopped = false;
  bool wasGivenUp = false;  ///< before it began: its turn did not come
  bool hasRun = false;
  Blame blame = Blame::kNobody;
  std::string reason;  ///< empty: nothing went wrong on the way
  std::string host;
  std::string machineId;
  std::string bootId;
  std::map<std::string, uint64_t> phases;
  uint64_t sentBytes = 0;
  uint64_t fetchedBytes = 0;
};

class SshBoard {
 public:
  /// All outlive it. `sockets` is a folder of this user's alone, with a short path, `slot` the
  /// board's that this is about, `lock` a file that all who bring files to this board share.
  SshBoard(const Board& board, const Tools& tools, uint64_t slot, std::string sockets,
           std::string lock, StopSignals& signals);

  /// Sends what is missing, runs it when it is its turn, and fetches what came of it. Throws a
  /// Fault of kLimit where this machine cannot.
  [[nodiscard]] BoardEnd Run(const BoardWork& work, const LaunchTurn& turn = {});

  /// Removes files that are not what their names say.
  void Forget(const std::vector<BoardFile>& files, const std::string& scratch);

  /// Ends the connection that is kept.
  void Close(const std::string& scratch);

 private:
  std::vector<std::string> Ssh(const std::string& script,
                               const std::vector<std::string>& words) const;
  bool Look(const BoardWork& work, BoardEnd& end, std::vector<BoardFile>& missing,
            bool& areToolsMissing);
  bool Send(const BoardWork& work, const std::vector<BoardFile>& missing, bool areToolsSent,
            BoardEnd& end);
  bool Launch(const BoardWork& work, const LaunchTurn& turn, BoardEnd& end);
  bool Fetch(const BoardWork& work, BoardEnd& end);

  const Board& board_;
  const Tools& tools_;
  uint64_t slot_;
  std::string sockets_;
  std::string lock_;
  std::string processor_;  // as the board calls it
  uint64_t runAt_ = 0;     // in what came from the board
  StopSignals& signals_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_SSH_BOARD_H_
