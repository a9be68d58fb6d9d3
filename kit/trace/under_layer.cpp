#include "kit/trace/under_layer.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "kit/common/fault.h"
#include "kit/common/folder_names.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/trace/preload_path.h"
#include "kit/trace/trace_file.h"
#include "shared/trace/trace_format.h"
#include "shared/trace/trace_settings.h"

namespace vorn::kit {
namespace {

constexpr int kNotFound = 127;
constexpr int kNotStarted = 126;

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string FileNameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

// ---- Running ------------------------------------------------------------------------------------

using Variables = std::vector<std::pair<std::string, std::string>>;

// Of a trace that grows, up to the number of its process. The launcher's own number keeps apart
// what several leave for one output at a time.
std::string PartPrefix(const std::string& output, pid_t launcher) {
  return output + "." + std::to_string(launcher) + ".";
}

Variables LayerVariables(const TraceRequest& request, std::string preload) {
  Variables variables;
  const char* before = std::getenv("LD_PRELOAD");
  if (before != nullptr && *before != '\0') preload += ":" + std::string(before);
  variables.emplace_back("LD_PRELOAD", std::move(preload));
  // A layer takes a name that is not absolute from the folder of its process.
  std::array<char, PATH_MAX> here{};
  std::string output = request.output;
  if (output[0] != '/' && getcwd(here.data(), here.size()) != nullptr) {
    output = std::string(here.data()) + "/" + output;
  }
  variables.emplace_back("VORN_TRACE_FILE",
                         PartPrefix(output, getpid()) + "%p" + std::string(kUnfinishedSuffix));
  if (request.calls) variables.emplace_back("VORN_TRACE_CALLS", std::to_string(*request.calls));
  return variables;
}

// Becomes the program. Returns only where that failed; the reason is in errno.
void Execute(const TraceRequest& request, const Variables& variables) {
  std::vector<char*> words;
  for (const std::string& word : request.command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  for (const auto& [name, value] : variables) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  execvp(words[0], words.data());
}

// While the program runs, the terminal's keys are the program's. What is sent to this process alone
// is passed on.
pid_t g_child = 0;
void PassOn(int number) { kill(g_child, number); }

class SignalsForTheProgram {
 public:
  explicit SignalsForTheProgram(pid_t child) {
    g_child = child;
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignore, &interrupt_);
    sigaction(SIGQUIT, &ignore, &quit_);
    struct sigaction pass {};
    pass.sa_handler = PassOn;
    pass.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &pass, &terminate_);
  }
  ~SignalsForTheProgram() {
    sigaction(SIGINT, &interrupt_, nullptr);
    sigaction(SIGQUIT, &quit_, nullptr);
    sigaction(SIGTERM, &terminate_, nullptr);
  }
  SignalsForTheProgram(const SignalsForTheProgram&) = delete;
  SignalsForTheProgram& operator=(const SignalsForTheProgram&) = delete;

 private:
  struct sigaction interrupt_ {};
  struct sigaction quit_ {};
  struct sigaction terminate_ {};
};

// Ignored, as some parents leave it, how a child ended would be told to nobody.
class NewsOfChildren {
 public:
  NewsOfChildren() {
    struct sigaction byDefault {};
    byDefault.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &byDefault, &before_);
  }
  ~NewsOfChildren() { Restore(); }
  NewsOfChildren(const NewsOfChildren&) = delete;
  NewsOfChildren& operator=(const NewsOfChildren&) = delete;

  // For the program, which finds it as it was.
  void Restore() const { sigaction(SIGCHLD, &before_, nullptr); }

 private:
  struct sigaction before_ {};
};

// As a shell tells it. `failure` is the errno of an execution that failed, else 0.
int Run(const TraceRequest& request, int& failure) {
  const PreloadPath layer(request.layer);
  const Variables variables = LayerVariables(request, layer.Path());
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) {
    throw Fault(ExitStatus::kLimit, "cannot make a pipe: " + SystemReason(errno));
  }
  const NewsOfChildren news;
  const pid_t child = fork();
  if (child < 0) throw Fault(ExitStatus::kLimit, "cannot start a process: " + SystemReason(errno));
  if (child == 0) {
    news.Restore();
    Execute(request, variables);
    const int error = errno;
    [[maybe_unused]] const auto told = write(pipe[1], &error, sizeof(error));
    _exit(kNotFound);
  }
  const SignalsForTheProgram signals(child);
  close(pipe[1]);
  ssize_t got = 0;
  do {
    got = read(pipe[0], &failure, sizeof(failure));  // nothing comes where the program was started
  } while (got < 0 && errno == EINTR);
  if (got != sizeof(failure)) failure = 0;
  close(pipe[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (failure != 0) return failure == ENOENT ? kNotFound : kNotStarted;
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

// ---- What the layer left ------------------------------------------------------------------------

struct Part {
  std::string path;
  trace::Header header;
  uint64_t calls = 0;
};

// What lies beside `output` and begins with its name and a point, from there on.
std::vector<std::string> NamesBeside(const std::string& output) {
  std::vector<std::string> names;
  const std::string prefix = FileNameOf(output) + ".";
  for (const std::string& name : NamesIn(FolderOf(output))) {
    if (!name.starts_with(prefix) || !name.ends_with(kUnfinishedSuffix)) continue;
    names.push_back(name.substr(prefix.size()));
  }
  return names;
}

// What lies in a folder, by its paths, in order.
std::vector<std::string> EntriesOf(const std::string& folder) {
  std::vector<std::string> paths;
  for (const std::string& name : NamesIn(folder)) {
    if (!name.starts_with('.')) paths.push_back(folder + "/" + name);
  }
  return paths;
}

// Nothing if this is no trace.
std::optional<Part> ReadPart(const std::string& path) {
  Part part{.path = path, .header = {}, .calls = 0};
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const bool isTrace = fd >= 0 &&
                       read(fd, &part.header, sizeof(part.header)) == sizeof(part.header) &&
                       std::memcmp(part.header.magic, trace::kMagic, sizeof(trace::kMagic)) == 0;
  if (fd >= 0) close(fd);
  if (!isTrace) return std::nullopt;
  part.calls = part.header.calls + part.header.passed;
  return part;
}

std::vector<Part> FindParts(const std::string& output, pid_t launcher) {
  std::vector<Part> parts;
  for (const std::string& path : GrowingTraces(output, launcher)) {
    if (auto part = ReadPart(path)) parts.push_back(std::move(*part));
  }
  std::sort(parts.begin(), parts.end(), [](const Part& one, const Part& two) {
    return one.calls != two.calls ? one.calls > two.calls : one.path < two.path;
  });
  return parts;
}

bool IsRunning(uint32_t pid) { return kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM; }

// The room that no call took. Not of a process that runs on in the background: to write behind the
// end of what is mapped ends a process.
void CutRoom(const Part& part) {
  if (IsRunning(part.header.pid)) return;
  const uint64_t calls = std::min(part.header.calls, part.header.slots);
  [[maybe_unused]] const int cut = truncate(
      part.path.c_str(), static_cast<off_t>(part.header.slotsAt + calls * sizeof(trace::Slot)));
}

// What a launcher left that was killed, unless its program runs still.
void RemoveParts(const std::string& output) {
  for (const std::string& name : NamesBeside(output)) {
    const uint64_t launcher = std::strtoull(name.c_str(), nullptr, 10);
    const bool isOwn = launcher == static_cast<uint64_t>(getpid());
    if (launcher == 0 || launcher > INT_MAX ||
        (!isOwn && IsRunning(static_cast<uint32_t>(launcher)))) {
      continue;
    }
    const auto part = ReadPart(output + "." + name);
    if (part && !IsRunning(part->header.pid)) unlink(part->path.c_str());
  }
}

std::vector<std::string> NameParts(const std::string& output, const std::vector<Part>& parts) {
  std::vector<std::string> files;
  for (const Part& part : parts) {
    if (part.calls == 0) {
      unlink(part.path.c_str());
      continue;
    }
    CutRoom(part);
    const std::string name =
        files.empty() ? output : output + "." + std::to_string(part.header.pid);
    if (std::rename(part.path.c_str(), name.c_str()) != 0) {
      throw Fault(ExitStatus::kLimit,
                  "cannot name the trace '" + Printable(part.path) + "': " + SystemReason(errno));
    }
    files.push_back(name);
  }
  return files;
}

// ---- Why there is none --------------------------------------------------------------------------

// The file that would be executed, found as execvp finds it.
std::string FindProgram(const std::string& word) {
  if (word.find('/') != std::string::npos) return word;
  const char* path = std::getenv("PATH");
  std::string_view folders = path == nullptr ? "/bin:/usr/bin" : path;
  while (true) {
    const std::string_view folder = folders.substr(0, folders.find(':'));
    std::string file = (folder.empty() ? "." : std::string(folder)) + "/" + word;
    if (access(file.c_str(), X_OK) == 0) return file;
    if (folder.size() == folders.size()) return word;
    folders.remove_prefix(folder.size() + 1);
  }
}

// Whether an ELF file names a loader, without which nothing can be preloaded. Files of other kinds,
// scripts among them, do not matter: what runs them does.
bool IsStatic(const std::string& file) {
  std::array<char, 4096> front{};
  const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return false;
  const ssize_t got = read(fd, front.data(), front.size());
  close(fd);
  Elf64_Ehdr header;
  if (got < static_cast<ssize_t>(sizeof(header))) return false;
  std::memcpy(&header, front.data(), sizeof(header));
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return false;
  for (unsigned i = 0; i < header.e_phnum; ++i) {
    const uint64_t at = header.e_phoff + uint64_t{i} * header.e_phentsize;
    Elf64_Phdr part;
    if (at > front.size() - sizeof(part)) return false;
    std::memcpy(&part, front.data() + at, sizeof(part));
    if (part.p_type == PT_INTERP) return false;
  }
  return true;
}

std::string WhyNotLoaded(const std::string& word) {
  const std::string file = FindProgram(word);
  const std::string front = "the layer was not loaded into '" + Printable(word) + "': ";
  struct stat about {};
  if (stat(file.c_str(), &about) == 0 && (about.st_mode & (S_ISUID | S_ISGID)) != 0) {
    return front +
           "it runs with the rights of another user (setuid), for which nothing is preloaded";
  }
  if (IsStatic(file)) {
    return front +
           "it is linked statically, so that nothing can be preloaded; link it with "
           "libvorn.so";
  }
  return front +
         "see what the loader said on standard error, and whether a file can be made beside "
         "--output";
}

// ---- What is in the way from the beginning ------------------------------------------------------

std::string WhyNoFile(const std::string& output) {
  struct stat about {};
  if (stat(output.c_str(), &about) == 0 && !S_ISREG(about.st_mode)) {
    return "'" + Printable(output) + "' is " +
           (S_ISDIR(about.st_mode) ? "a folder" : "a device or a pipe") +
           ", and the trace has to be a file";
  }
  const std::string folder = FolderOf(output);
  if (access(folder.c_str(), W_OK | X_OK) == 0) return "";
  return "no trace can be made in '" + Printable(folder) + "': " + SystemReason(errno) +
         "; --output names another place";
}

bool HasSettings() {
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text = *variable;
    if (text.starts_with("VORN_TRACE_") || text.starts_with(kSettingsVariable)) return true;
  }
  return false;
}

// This program, which has nothing to do here but to be loaded with the layer.
[[noreturn]] void BeginUnderLayer(const Variables& variables, int file, int said) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  dup2(said, STDERR_FILENO);
  for (const auto& [name, value] : variables) setenv(name.c_str(), value.c_str(), 1);
  // In memory, and gone with the parent.
  const std::string path = "/proc/" + std::to_string(getppid()) + "/fd/" + std::to_string(file);
  setenv("VORN_TRACE_FILE", path.c_str(), 1);
  execl("/proc/self/exe", "vorn", "--help=names", nullptr);
  _exit(kNotFound);
}

// What a layer says that finds no fault in its settings is nothing.
std::string WordsOfLayer(const TraceRequest& request) {
  const PreloadPath layer(request.layer);
  const Variables variables = LayerVariables(request, layer.Path());
  std::array<int, 2> pipe{};
  const int file = memfd_create("vorn-trace", MFD_CLOEXEC);
  if (file < 0 || pipe2(pipe.data(), O_CLOEXEC) != 0) return "";
  const pid_t child = fork();
  if (child == 0) BeginUnderLayer(variables, file, pipe[1]);
  close(pipe[1]);
  std::string words;
  std::array<char, 4096> piece{};
  ssize_t got = 0;
  while (child > 0 &&
         ((got = read(pipe[0], piece.data(), piece.size())) > 0 || (got < 0 && errno == EINTR))) {
    if (got > 0) words.append(piece.data(), static_cast<size_t>(got));
  }
  close(pipe[0]);
  close(file);
  while (child > 0 && waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
  }
  return words;
}

// Its line about a setting, if there is one; what it cannot do here it may well do elsewhere.
std::string RefusalIn(const std::string& words) {
  constexpr std::string_view kFront = "vorn-layer: ";
  size_t start = words.find(kFront);
  while (start != std::string::npos) {
    const std::string line =
        words.substr(start + kFront.size(), words.find('\n', start) - start - kFront.size());
    if (!line.starts_with("cannot ")) return Printable(line);
    start = words.find(kFront, start + 1);
  }
  return "";
}

std::string WhyNoCall(const std::vector<Part>& parts, const std::string& word,
                      const std::string& layer) {
  if (parts.empty()) return WhyNotLoaded(word);
  for (const Part& part : parts) {
    if (part.calls != 0) return "";
  }
  for (const Part& part : parts) {
    if (part.header.other[0] == '\0') continue;
    return "the program called " + Printable(part.header.other) +
           " without the layer, as programs do that open it by its name. Let them open the layer "
           "in "
           "its place: copy " +
           Printable(layer) +
           " to a folder as libvorn.so, name that folder in "
           "LD_LIBRARY_PATH and the runtime in VORN_NEXT";
  }
  return "";  // a program that made no call
}

}  // namespace

std::string WhyNoTrace(const TraceRequest& request) {
  std::string reason = request.output.empty() ? "" : WhyNoFile(request.output);
  if (!reason.empty() || !HasSettings()) return reason;
  return RefusalIn(WordsOfLayer(request));
}

std::string FindTraceLayer() {
  const std::string folder = OwnFolder();
  for (const char* place : {"/libvorn-trace.so", "/../lib/libvorn-trace.so"}) {
    if (access((folder + place).c_str(), R_OK) == 0) return folder + place;
  }
  throw Fault(ExitStatus::kOwnFault,
              "there is no libvorn-trace.so in " + Printable(folder) +
                  " nor in ../lib from there; install it beside this program");
}

std::vector<std::string> GrowingTraces(const std::string& output, pid_t launcher) {
  const std::string own = std::to_string(launcher) + ".";
  std::vector<std::string> paths;
  for (const std::string& name : NamesBeside(output)) {
    if (name.starts_with(own)) paths.push_back(output + "." + name);
  }
  return paths;
}

std::vector<std::pair<std::string, std::string>> PrepareTrace(const TraceRequest& request) {
  RemoveParts(request.output);
  return LayerVariables(request, request.layer);
}

TraceOutcome CollectTrace(const TraceRequest& request, pid_t launcher) {
  const std::vector<Part> parts = FindParts(request.output, launcher);
  TraceOutcome outcome;
  outcome.reason = WhyNoCall(parts, request.command[0], request.layer);
  outcome.files = NameParts(request.output, parts);
  return outcome;
}

std::vector<std::string> TracesIn(const std::string& folder) {
  constexpr std::string_view kEnding = ".vtrace";
  std::vector<std::string> traces;
  std::vector<std::string> folders{folder};
  std::vector<std::string> jobs = EntriesOf(folder + "/chunks");
  folders.insert(folders.end(), jobs.begin(), jobs.end());
  for (const std::string& place : folders) {
    for (const std::string& path : EntriesOf(place)) {
      struct stat about {};
      const bool isFile = stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
      if (isFile && (path.ends_with(kEnding) || ReadPart(path))) traces.push_back(path);
    }
  }
  return traces;
}

std::string FindRunningTrace(const std::string& output) {
  const std::vector<Part> parts = FindParts(output, getpid());
  return parts.empty() ? "" : parts.front().path;
}

TraceOutcome RunUnderTrace(const TraceRequest& request) {
  RemoveParts(request.output);  // what an earlier run left that was killed with its program
  int failure = 0;
  const int status = Run(request, failure);
  if (failure != 0) {
    throw Fault(ExitStatus{status},
                "cannot start '" + Printable(request.command[0]) + "': " + SystemReason(failure));
  }
  TraceOutcome outcome = CollectTrace(request, getpid());
  outcome.status = status;
  return outcome;
}

}  // namespace vorn::kit
