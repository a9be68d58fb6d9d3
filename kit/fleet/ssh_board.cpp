#include "kit/fleet/ssh_board.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/fleet/child.h"
#include "kit/fleet/locked_file.h"
#include "kit/launch/lifeline.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr int kSshFailed = 255;
constexpr int kLacksProgram = 4;  // as kLook ends then
constexpr int kNotTaken = 111;    // as kRun ends where nobody takes what it sends
constexpr int kConnectTries = 4;
constexpr std::chrono::minutes kToLook{2};
constexpr std::chrono::minutes kToSend{60};
constexpr std::chrono::minutes kToFetch{60};
constexpr uint64_t kMostLookBytes = 64 << 20;
constexpr const char* kLifelineS = "60";

// Stands before the run directory on standard output: a login may have said something by then.
// Behind it, in its line, stands what the launch ended with.
constexpr std::string_view kMark = "vorn-fleet: the run directory of a launch that ended with ";
constexpr uint64_t kMostBeforeMark = 1 << 20;

// WORK BOARD; on its input a line a file. Says what the board is and what it lacks, and removes
// what jobs of it left that are gone. Other boards may have the same folder, as a home that a
// server has for all of them: of their jobs nobody here knows whether they run.
constexpr const char* kLook = R"sh(umask 077
unset CDPATH
for needed in tar find sed env; do
  command -v "$needed" >/dev/null && continue
  printf "there is no %s on the board, or not in the PATH of its login; install it there\n" \
    "$needed" >&2
  exit 4
done
mkdir -p -- "$1/files" "$1/tools" "$1/jobs" "$1/cache" && cd -- "$1" || exit 3
boot=$(cat /proc/sys/kernel/random/boot_id 2>/dev/null)
printf "host %s\n" "$(uname -n)"
printf "processor %s\n" "$(uname -m)"
printf "machine %s\n" "$(cat /etc/machine-id 2>/dev/null)"
printf "boot %s\n" "$boot"
for left in jobs/"$2"=* in."$2"=*; do
  [ -d "$left" ] || continue
  case $left in *".$boot."*) kill -0 "${left##*.}" 2>/dev/null && continue ;; esac
  rm -rf -- "$left"
done
IFS="
"
set -f
for file in $(cat); do
  [ -s "$file" ] || printf "lacks %s\n" "$file"
done
echo over
exit 0
)sh";

// WORK BOARD; on its input an archive of files/ and tools/. What is there appears whole, and
// nothing that somebody may be at is away for a moment.
constexpr const char* kReceive = R"sh(umask 077
unset CDPATH
cd -- "$1" || exit 3
in=in.$2=.$(cat /proc/sys/kernel/random/boot_id 2>/dev/null).$$
mkdir "$in" || exit 7
trap "rm -rf -- $in" EXIT
tar -xf - -C "$in" || exit 7
[ ! -d "$in/files" ] ||
  find "$in/files" -type f -exec /bin/sh -c "mv -f -- \"\$@\" files/" mv {} + || exit 7
for tools in "$in"/tools/*; do
  [ -d "$tools" ] || continue
  to=tools/${tools##*/}
  mkdir -p "$to" && mv -f "$tools"/* "$to/" || exit 7
done
exit 0
)sh";

// WORK BOARD ID MARK [PATH FILE]... -- WORD...; on its input the list, an empty line, and then
// whatever keeps it alive, of which sed may take some with it: the shell's own read takes a pipe a
// byte at a time. The words are those of env: settings, the program, its own words. The run
// directory goes to standard output, and whoever sent all of it ends with 0: what the launch ended
// with is not to be taken for what became of the directory.
constexpr const char* kRun = R"sh(umask 077
unset CDPATH
cd -- "$1" || exit 3
top=$(pwd -P)
job=$top/jobs/$2=$3.$(cat /proc/sys/kernel/random/boot_id 2>/dev/null).$$
mark=$4
shift 4
mkdir -- "$job" && cd -- "$job" || exit 7
trap "cd / && rm -rf -- \"\$job\"" EXIT
trap "exit 8" HUP INT TERM
trap "exit 111" PIPE
sed -n -e "/^\$/q" -e p >list.txt
while [ "$1" != -- ]; do
  mkdir -p -- "$(dirname -- "$1")" && ln -s -- "$top/files/$2" "$1" || exit 7
  shift 2
done
shift
XDG_CACHE_HOME=$top/cache
export XDG_CACHE_HOME
env "$@"
status=$?
[ "$status" != 0 ] || [ -e run/run.json ] || status=1
[ -e run/run.json ] || exit "$status"
printf "%s%s\n" "$mark" "$status"
tar -cf - run
sent=$?
[ "$sent" -lt 128 ] || exit 111
[ "$sent" = 0 ] || exit 7
exit 0
)sh";

// WORK; on its input a line a file.
constexpr const char* kForget = R"sh(unset CDPATH
cd -- "$1/files" || exit 3
while IFS= read -r file; do rm -f -- "$file"; done
exit 0
)sh";

// A byte as all shells leave it between single quotes, and printf %b takes it: csh reads '!', line
// ends and what is no ASCII in them otherwise, and fish the backslash.
std::string PrintfByte(char c) {
  constexpr std::string_view kSpecial = "'\\!";
  const auto byte = static_cast<unsigned char>(c);
  const bool isPlain = byte >= ' ' && byte < 0x7F && kSpecial.find(c) == kSpecial.npos;
  if (isPlain) return {c};
  const auto digit = [&](unsigned shift) {
    return static_cast<char>('0' + ((byte >> shift) & 7U));
  };
  return {'\\', '0', digit(6), digit(3), digit(0)};
}

uint64_t Ns(const ChildEnd& end) { return static_cast<uint64_t>(end.time.count()); }

std::string Said(const std::string& file) {
  const std::string line = LastLineOf(file);
  return line.empty() ? "" : "; it said: " + line;
}

std::string WhyNotLookedAt(const ChildEnd& child, const std::string& host, const std::string& err) {
  if (child.status == kLacksProgram) return LastLineOf(err);
  return (child.status == kSshFailed ? "no connection to " + Quoted(host)
                                     : "looking at the board " + DescribeChildEnd(child)) +
         Said(err);
}

// Whether a line of the board's answer begins so: a login may say something before and behind it.
bool HasLine(const std::string& text, const std::string& front) {
  return text.starts_with(front) || text.find("\n" + front) != std::string::npos;
}

// What of a line of the board's answer stands behind `key`.
void TakeAnswer(const std::string& line, const std::string& key, std::string& value) {
  if (line.starts_with(key + " ")) value = PrintableExcerpt(line.substr(key.size() + 1));
}

std::string FileInWork(const std::string& hash) { return "files/" + hash; }

// The run directory in what came from the board.
struct SentRun {
  uint64_t at = 0;       // 0: none came
  int launchStatus = 0;  // as a shell has it
};

SentRun FindRun(const std::string& file) {
  const std::string text = ReadFrom(file, 0, kMostBeforeMark);
  const size_t mark = text.find(kMark);
  const size_t end = mark == std::string::npos ? mark : text.find('\n', mark);
  if (end == std::string::npos) return {};
  return {.at = end + 1, .launchStatus = std::atoi(text.c_str() + mark + kMark.size())};
}

// Whether what came from the board says that its device is free.
bool HasProgramEnded(const std::string& file) {
  if (SizeOfFile(file) == 0) return false;  // as while it runs, when this is asked again and again
  return ReadFrom(file, 0, kMostBeforeMark).find(kLastProcessEnded) != std::string::npos ||
         FindRun(file).at > 0;
}

std::string WhyNotLaunched(bool isLost, bool isSent, const SentRun& run, const ChildEnd& child) {
  if (isLost) return "the board was lost on the way: ssh " + DescribeChildEnd(child);
  if (isSent) return "the launch ended with status " + std::to_string(run.launchStatus);
  return (run.at > 0 ? "packing what the launch left " : "the launch ") + DescribeChildEnd(child);
}

// A shell there takes a program for another processor for a script, and tells of its syntax.
std::string WhyOfProcessor(const std::string& there) {
  utsname here{};
  if (uname(&here) != 0 || there.empty() || there == here.machine) return "";
  return "; the programs are those for this machine (" + std::string(here.machine) +
         "), and the board is another one (" + there +
         "): name some for it as 'tools' of the board";
}

// tar takes one that ends behind one of its files for whole.
bool HasEndOfArchive(const std::string& file, uint64_t from) {
  constexpr uint64_t kEndBytes = 1024;
  const uint64_t size = SizeOfFile(file);
  return size >= from + kEndBytes &&
         ReadFrom(file, size - kEndBytes, kEndBytes) == std::string(kEndBytes, '\0');
}

// No board is to be blamed for what was changed here.
void HoldToPlan(const std::vector<BoardFile>& files) {
  for (const BoardFile& file : files) {
    const FileIdentity now = IdentifyFile(file.path, "a file of the plan", ExitStatus::kInput);
    if (now.xxh3.value_or("") == file.hash) continue;
    throw Fault(ExitStatus::kInput, Quoted(file.path) +
                                        " has changed since the plan was made; put back what it "
                                        "was, or make another plan");
  }
}

// No board is to be blamed for a disk that is full here: what came did not find room. Whoever else
// wrote there may have made some since, and what a program of this machine said found none, either.
void HoldToRoom(const std::string& folder) {
  if (!IsDiskFull(folder)) return;
  throw Fault(ExitStatus::kLimit, "no room is left on the disk of " + Quoted(folder));
}

void HoldToRoom(const std::string& folder, const ChildEnd& ofHere, const std::string& err) {
  HoldToRoom(folder);
  constexpr size_t kMostLastWords = 64 << 10;
  const std::string said = ReadFrom(err, 0, kMostLastWords);
  const bool isFull =
      ofHere.status && (said.empty() || said.find(SystemReason(ENOSPC)) != said.npos);
  if (!isFull) return;
  throw Fault(ExitStatus::kLimit, "no room was left on the disk of " + Quoted(folder));
}

// What came from a board has not come to its end here.
[[noreturn]] void RefuseToWrite(const std::string& file) {
  throw Fault(ExitStatus::kLimit, "what came from the board could not be written to " +
                                      Quoted(file) + ", most likely for want of room");
}

// Links to the files by the names that they have on the board: tar follows them.
void LinkFiles(const std::string& folder, const std::vector<BoardFile>& files) {
  if (!files.empty()) MakeFolders(folder + "/files");
  for (const BoardFile& file : files) {
    const std::string link = folder + "/files/" + file.hash;
    if (symlink(file.path.c_str(), link.c_str()) != 0 && errno != EEXIST) {
      throw Fault(ExitStatus::kLimit,
                  "cannot make a link in " + Quoted(folder) + ": " + SystemReason(errno));
    }
  }
}

}  // namespace

std::string ShellWord(const std::string& word) {
  std::string text = "'";
  for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return text + "'";
}

std::string BoardCommand(const std::string& script, const std::vector<std::string>& words) {
  constexpr size_t kMostPieceBytes = 500;  // some shells take no long words
  std::string text = "set --";
  for (const std::string& word : words) text += " " + ShellWord(word);
  text += "\n" + script;
  std::string command = R"sh(exec /bin/sh -c 'eval "$(printf %b "$@")"' vorn-fleet)sh";
  std::string piece;
  for (const char c : text) {
    piece += PrintfByte(c);
    if (piece.size() < kMostPieceBytes) continue;
    command += " '" + piece + "'";
    piece.clear();
  }
  return command + " '" + piece + "'";
}

std::string FileInJob(const std::string& hash) { return "../../files/" + hash; }

SshBoard::SshBoard(const Board& board, const Tools& tools, uint64_t slot, std::string sockets,
                   std::string lock, StopSignals& signals)
    : board_(board),
      tools_(tools),
      slot_(slot),
      sockets_(std::move(sockets)),
      lock_(std::move(lock)),
      signals_(signals) {}

std::vector<std::string> SshBoard::Ssh(const std::string& script,
                                       const std::vector<std::string>& words) const {
  std::vector<std::string> command{"ssh", "-T"};
  // Of options that are given twice ssh takes the first.
  command.insert(command.end(), board_.ssh.begin(), board_.ssh.end());
  for (const char* option : {"BatchMode=yes", "ConnectTimeout=15", "ServerAliveInterval=15",
                             "ServerAliveCountMax=4", "ControlMaster=auto", "ControlPersist=60",
                             // What a person has for a terminal of the board's.
                             "RemoteCommand=none", "PermitLocalCommand=no"}) {
    command.insert(command.end(), {"-o", option});
  }
  command.insert(command.end(), {"-o", "ControlPath=" + sockets_ + "/%C-" + std::to_string(slot_)});
  command.insert(command.end(), {"--", board_.host, BoardCommand(script, words)});
  return command;
}

BoardEnd SshBoard::Run(const BoardWork& work, const LaunchTurn& turn) {
  BoardEnd end;
  {
    // One at a time: a board opens its door to few at once, and what one brings another need not.
    const LockedFile lock(lock_);
    if (!lock.Take(LockedFile::Share::kAlone, signals_)) {
      end.wasStopped = true;
      return end;
    }
    std::vector<BoardFile> missing;
    bool areToolsMissing = work.areFilesStale;
    if (!Look(work, end, missing, areToolsMissing)) return end;
    const bool isAllThere = missing.empty() && !areToolsMissing;
    if (!isAllThere && !Send(work, missing, areToolsMissing, end)) return end;
  }
  if (turn.take && !turn.take()) {
    end.wasGivenUp = true;
    return end;
  }
  if (work.begin) work.begin();
  const bool isToFetch = Launch(work, turn, end) && end.hasRun;
  if (turn.end) turn.end();
  if (isToFetch) end.hasRun = Fetch(work, end);
  return end;
}

bool SshBoard::Look(const BoardWork& work, BoardEnd& end, std::vector<BoardFile>& missing,
                    bool& areToolsMissing) {
  std::string needed;
  const std::string tools = "tools/" + tools_.id + "/";
  for (const std::string& name : tools_.files) {
    // One without a byte looks as one that a loss of power left, and is nothing to run.
    if (SizeOfFile(tools_.folder + "/" + name) > 0) needed += tools + name + "\n";
  }
  std::set<std::string> hashes;
  for (const BoardFile& file : work.files) {
    if (hashes.insert(file.hash).second) needed += FileInWork(file.hash) + "\n";
  }
  const ChildRequest request{.command = Ssh(kLook, {board_.work, board_.name}),
                             .input = needed,
                             .inputFile = {},
                             .isKeptAlive = false,
                             .out = work.folder + "/look.out",
                             .err = work.folder + "/look.err",
                             .limit = kToLook};
  ChildEnd child;
  std::string text;
  for (int tried = 1;; ++tried) {
    child = RunChild(request, signals_);
    end.phases["connect"] += Ns(child);
    text = ReadWholeFile(request.out, "the board's answer", ExitStatus::kLimit, kMostLookBytes);
    const bool isCut = child.IsDone() && !HasLine(text, "over\n");
    if (isCut) HoldToRoom(work.folder);
    const bool mayBeOfHere = isCut && (text.empty() || HasLine(text, "host "));
    const bool isNotConnected = child.status == kSshFailed && !child.wasStopped;
    if ((!isNotConnected && !mayBeOfHere) || tried == kConnectTries) break;
    for (int i = 0; i < 10 << tried && signals_.Asked() == 0; ++i) {
      signals_.Wait(std::chrono::milliseconds(50));
    }
  }
  end.wasStopped = child.wasStopped;
  if (!child.IsDone()) {
    end.blame = child.wasStopped ? Blame::kNobody : Blame::kBoard;
    end.reason = WhyNotLookedAt(child, board_.host, request.err);
    return false;
  }
  if (!HasLine(text, "over\n")) {
    if (HasLine(text, "host ")) RefuseToWrite(request.out);
    end.blame = Blame::kBoard;
    end.reason = "the login of " + Quoted(board_.host) +
                 " does not run what it is asked to, and ends with status 0" + Said(request.out);
    return false;
  }
  std::set<std::string> lacking;
  for (size_t at = 0; at < text.size();) {
    const size_t stop = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, stop - at);
    TakeAnswer(line, "host", end.host);
    TakeAnswer(line, "machine", end.machineId);
    TakeAnswer(line, "boot", end.bootId);
    TakeAnswer(line, "processor", processor_);
    if (line.starts_with("lacks " + tools)) areToolsMissing = true;
    if (line.starts_with("lacks ")) lacking.insert(line.substr(sizeof "lacks " - 1));
    at = stop + 1;
  }
  for (const BoardFile& file : work.files) {
    const bool isStale = work.areFilesStale && !file.isInput;
    if (lacking.erase(FileInWork(file.hash)) != 0 || isStale) missing.push_back(file);
  }
  return true;
}

bool SshBoard::Send(const BoardWork& work, const std::vector<BoardFile>& missing, bool areToolsSent,
                    BoardEnd& end) {
  HoldToPlan(missing);
  const std::string folder = work.folder + "/send";
  MakeFolders(folder);
  LinkFiles(folder, missing);
  if (areToolsSent) {
    MakeFolders(folder + "/tools/" + tools_.id);
    for (const std::string& name : tools_.files) {
      const std::string link = folder + "/tools/" + tools_.id + "/" + name;
      (void)!symlink((tools_.folder + "/" + name).c_str(), link.c_str());
    }
  }
  // tar refuses what it cannot read; the archive is whole before the board hears of it.
  ChildRequest pack{.command = {"tar", "-chf", "-", "-C", folder, "."},
                    .input = {},
                    .inputFile = {},
                    .isKeptAlive = false,
                    .out = work.folder + "/send.tar",
                    .err = work.folder + "/send.err",
                    .limit = kToSend};
  const ChildEnd packed = RunChild(pack, signals_);
  RemoveTree(folder);
  if (packed.wasStopped) {
    end.wasStopped = true;
    return false;
  }
  if (!packed.IsDone()) {
    HoldToRoom(work.folder, packed, pack.err);
    throw Fault(ExitStatus::kInput, "the files for the boards cannot be packed" + Said(pack.err));
  }
  const ChildRequest send{.command = Ssh(kReceive, {board_.work, board_.name}),
                          .input = {},
                          .inputFile = pack.out,
                          .isKeptAlive = false,
                          .out = work.folder + "/send.out",
                          .err = work.folder + "/send.err",
                          .limit = kToSend};
  const ChildEnd sent = RunChild(send, signals_);
  end.sentBytes = SizeOfFile(pack.out);
  RemoveTree(pack.out);
  end.phases["send"] = Ns(packed) + Ns(sent);
  end.wasStopped = sent.wasStopped;
  if (sent.IsDone()) return true;
  end.blame = sent.wasStopped ? Blame::kNobody : Blame::kBoard;
  end.reason = "sending " + SizeText(end.sentBytes) + " to " + Quoted(board_.host) + " " +
               DescribeChildEnd(sent) + Said(send.err);
  return false;
}

bool SshBoard::Launch(const BoardWork& work, const LaunchTurn& turn, BoardEnd& end) {
  std::vector<std::string> words{board_.work, board_.name, work.id, std::string(kMark)};
  for (const auto& [path, hash] : work.links) {
    words.insert(words.end(), {path, hash});
  }
  words.emplace_back("--");
  bool isPathSet = false;
  for (const auto& [name, value] : board_.environment) {
    words.push_back(name + "=" + value);
    isPathSet = isPathSet || name == "LD_LIBRARY_PATH";
  }
  if (!board_.runtime.empty() && !isPathSet) {
    const size_t slash = board_.runtime.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : board_.runtime.substr(0, slash);
    words.push_back("LD_LIBRARY_PATH=" + (folder.empty() ? "/" : folder));
  }
  words.push_back("../../tools/" + tools_.id + "/vorn-launch");
  words.insert(words.end(), work.words.begin(), work.words.end());
  words.insert(words.end(), {"-i", "list.txt", "--run", "run", "--lifeline", kLifelineS});
  std::optional<std::chrono::milliseconds> limit;
  if (work.limit) {
    words.insert(words.end(), {"--timeout", std::to_string(work.limit->count())});
    // It ends by itself, and what there is still comes back.
    limit = *work.limit + kToFetch;
  }
  std::string input;
  for (const std::string& line : work.list) input += line + "\n";
  const std::string out = work.folder + "/run.tar";
  const ChildRequest request{.command = Ssh(kRun, words),
                             .input = input + "\n",
                             .inputFile = {},
                             .isKeptAlive = true,
                             .out = out,
                             .err = work.folder + "/run.err",
                             .limit = limit,
                             .laterLimit = work.laterLimit,
                             // What it left is looked at there, or on its way: the slot is free.
                             .tick = [&, wasEnded = false]() mutable {
                               if (wasEnded || !turn.end || !HasProgramEnded(out)) return;
                               wasEnded = true;
                               turn.end();
                             }};
  const ChildEnd child = RunChild(request, signals_);
  end.phases["launch"] = Ns(child);
  end.wasStopped = child.wasStopped;
  const SentRun run = FindRun(request.out);
  runAt_ = run.at;
  end.fetchedBytes = SizeOfFile(request.out) - runAt_;
  if (child.wasStopped) return false;
  if (child.status != 0) HoldToRoom(work.folder);
  if (child.status == kNotTaken) RefuseToWrite(request.out);
  const bool isLost = child.wasLate || !child.status || child.status == kSshFailed;
  const bool isSent = child.status == 0 && !child.wasLate;
  const bool isHere = runAt_ > 0 && HasEndOfArchive(request.out, runAt_);
  if (isSent && !isHere) RefuseToWrite(request.out);
  end.hasRun = !isLost && runAt_ > 0 && end.fetchedBytes > 0;
  if (isSent && run.launchStatus == 0) return true;
  end.blame = isLost || end.hasRun ? Blame::kUnknown : Blame::kBoard;
  end.reason = WhyNotLaunched(isLost, isSent, run, child) + Said(request.err);
  if (end.blame == Blame::kBoard && board_.tools.empty()) end.reason += WhyOfProcessor(processor_);
  return end.hasRun;
}

bool SshBoard::Fetch(const BoardWork& work, BoardEnd& end) {
  const ChildRequest unpack{.command = {"tar", "-xf", "-", "-C", work.folder, "--no-same-owner",
                                        "--no-same-permissions", "run"},
                            .input = {},
                            .inputFile = work.folder + "/run.tar",
                            .inputFrom = runAt_,
                            .isKeptAlive = false,
                            .out = work.folder + "/fetch.out",
                            .err = work.folder + "/fetch.err",
                            .limit = kToFetch};
  const ChildEnd child = RunChild(unpack, signals_);
  end.phases["fetch"] = Ns(child);
  if (!child.IsDone() && !child.wasStopped) HoldToRoom(work.folder, child, unpack.err);
  RemoveTree(work.folder + "/run.tar");
  if (child.IsDone()) return true;
  end.wasStopped = child.wasStopped;
  end.blame = child.wasStopped ? Blame::kNobody : Blame::kUnknown;
  end.reason =
      "what came of it cannot be unpacked: tar " + DescribeChildEnd(child) + Said(unpack.err);
  return false;
}

void SshBoard::Forget(const std::vector<BoardFile>& files, const std::string& scratch) {
  std::string text;
  for (const BoardFile& file : files) text += file.hash + "\n";
  (void)RunChild({.command = Ssh(kForget, {board_.work}),
                  .input = text,
                  .inputFile = {},
                  .isKeptAlive = false,
                  .out = scratch + "/forget.out",
                  .err = scratch + "/forget.err",
                  .limit = kToLook},
                 signals_);
}

void SshBoard::Close(const std::string& scratch) {
  std::vector<std::string> command = Ssh("", {});
  command.resize(command.size() - 3);
  command.insert(command.end(), {"-O", "exit", "--", board_.host});
  (void)RunChild({.command = command,
                  .input = {},
                  .inputFile = {},
                  .isKeptAlive = false,
                  .out = scratch + "/close.out",
                  .err = scratch + "/close.err",
                  .limit = kToLook},
                 signals_);
}

}  // namespace vorn::kit
