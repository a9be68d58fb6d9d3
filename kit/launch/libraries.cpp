#include "kit/launch/libraries.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kRuntimeName = "libvorn.so";
constexpr size_t kMostParts = 128;
constexpr int kNotExecuted = 127;
constexpr size_t kMostNoteBytes = 65536;

bool ReadAt(int fd, uint64_t offset, void* place, size_t size) {
  return pread(fd, place, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

class ElfFile {
 public:
  explicit ElfFile(const std::string& path)
      : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
    ElfW(Ehdr) header{};
    if (!ReadAt(file_.Get(), 0, &header, sizeof(header))) return;
    if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return;
    for (size_t i = 0; i < std::min<size_t>(header.e_phnum, kMostParts); ++i) {
      ElfW(Phdr) part{};
      if (!ReadAt(file_.Get(), header.e_phoff + i * header.e_phentsize, &part, sizeof(part))) break;
      parts_.push_back(part);
    }
  }

  [[nodiscard]] bool HasLoader() const {
    return std::any_of(parts_.begin(), parts_.end(),
                       [](const ElfW(Phdr) & part) { return part.p_type == PT_INTERP; });
  }

  /// The bytes of all notes.
  [[nodiscard]] std::vector<std::string> Notes() const {
    std::vector<std::string> notes;
    for (const ElfW(Phdr) & part : parts_) {
      if (part.p_type != PT_NOTE || part.p_filesz > kMostNoteBytes) continue;
      std::string bytes(part.p_filesz, '\0');
      if (ReadAt(file_.Get(), part.p_offset, bytes.data(), bytes.size())) notes.push_back(bytes);
    }
    return notes;
  }

 private:
  OwnedFile file_;
  std::vector<ElfW(Phdr)> parts_;
};

size_t Padded(size_t size) { return (size + 3) / 4 * 4; }

std::string Hexadecimal(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string text;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    text += kDigits[value / 16];
    text += kDigits[value % 16];
  }
  return text;
}

std::optional<std::string> BuildIdIn(std::string_view notes) {
  ElfW(Nhdr) note{};
  while (notes.size() >= sizeof(note)) {
    std::memcpy(&note, notes.data(), sizeof(note));
    notes.remove_prefix(sizeof(note));
    const size_t name = Padded(note.n_namesz);
    const size_t content = Padded(note.n_descsz);
    if (name > notes.size() || note.n_descsz > notes.size() - name) return std::nullopt;
    const bool isBuildId = note.n_type == NT_GNU_BUILD_ID && notes.starts_with("GNU");
    if (isBuildId) return Hexadecimal(notes.substr(name, note.n_descsz));
    notes.remove_prefix(std::min(name + content, notes.size()));
  }
  return std::nullopt;
}

std::string OutputOf(const std::string& program) {
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) {
    throw Fault(ExitStatus::kLimit, "cannot make a pipe: " + SystemReason(errno));
  }
  const pid_t child = fork();
  if (child < 0) throw Fault(ExitStatus::kLimit, "cannot start a process: " + SystemReason(errno));
  if (child == 0) {
    dup2(pipe[1], STDOUT_FILENO);
    dup2(pipe[1], STDERR_FILENO);
    setenv("LD_TRACE_LOADED_OBJECTS", "1", 1);
    execl(program.c_str(), program.c_str(), nullptr);
    _exit(kNotExecuted);
  }
  close(pipe[1]);
  std::string text;
  std::array<char, 4096> piece{};
  ssize_t got = 0;
  while ((got = read(pipe[0], piece.data(), piece.size())) > 0 || (got < 0 && errno == EINTR)) {
    if (got > 0) text.append(piece.data(), static_cast<size_t>(got));
  }
  close(pipe[0]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  if (text.empty() && WIFEXITED(status) && WEXITSTATUS(status) == kNotExecuted) {
    throw Fault(ExitStatus::kRuntime,
                "the program '" + Printable(program) +
                    "' cannot be executed on this machine, or its loader is not there; --program "
                    "names another");
  }
  return text;
}

std::string FileNameIn(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

LinkedLibraries ParseLoaderLines(std::string_view lines) {
  constexpr std::string_view kArrow = " => ";
  LinkedLibraries libraries;
  while (!lines.empty()) {
    const size_t end = std::min(lines.find('\n'), lines.size());
    std::string_view line = lines.substr(0, end);
    lines.remove_prefix(std::min(end + 1, lines.size()));
    line.remove_prefix(std::min(line.find_first_not_of(" \t"), line.size()));
    const size_t arrow = line.find(kArrow);
    const size_t address = line.rfind(" (0x");
    if (arrow != line.npos && line.substr(arrow + kArrow.size()) == "not found") {
      libraries.missing.emplace_back(line.substr(0, arrow));
    } else if (address != line.npos) {
      // The loader itself stands there without an arrow, and what the kernel brings without a path.
      const size_t from = arrow == line.npos ? 0 : arrow + kArrow.size();
      const std::string_view path = line.substr(from, address - std::min(address, from));
      // A folder of LD_LIBRARY_PATH may count from here.
      const bool isPath =
          path.starts_with('/') || (arrow != line.npos && path.find('/') != path.npos);
      if (isPath) libraries.found.emplace_back(path);
    }
  }
  return libraries;
}

std::optional<LinkedLibraries> AskLoader(const std::string& program) {
  struct stat about {};
  const bool isFolder = stat(program.c_str(), &about) == 0 && !S_ISREG(about.st_mode);
  if (isFolder || access(program.c_str(), X_OK) != 0) {
    throw Fault(ExitStatus::kRuntime,
                "the program '" + Printable(program) + "' cannot be run: " +
                    (isFolder ? "it is no regular file" : SystemReason(errno)) +
                    "; --program names another");
  }
  // Anything else would run now.
  if (!ElfFile(program).HasLoader()) return std::nullopt;
  return ParseLoaderLines(OutputOf(program));
}

std::string FindRuntime(const std::string& program, const LinkedLibraries& libraries) {
  const auto refuse = [&](const std::string& what) {
    throw Fault(ExitStatus::kRuntime, "'" + Printable(program) + "' " + what);
  };
  // Its own library first: what that needs is missing as well where it is.
  for (const bool isRuntime : {true, false}) {
    for (const std::string& name : libraries.missing) {
      if (name.starts_with(kRuntimeName) != isRuntime) continue;
      refuse("finds no " + Printable(name) + "; name its folder in LD_LIBRARY_PATH");
    }
  }
  for (const std::string& path : libraries.found) {
    if (FileNameIn(path).starts_with(kRuntimeName)) return path;
  }
  throw Fault(ExitStatus::kRuntime, "'" + Printable(program) +
                                        "' is not linked with a libvorn.so; --program names a "
                                        "vorn-run");
}

std::vector<std::string> MappedLibraries(pid_t pid) {
  std::vector<std::string> paths;
  std::string maps;
  try {
    maps =
        ReadWholeFile("/proc/" + std::to_string(pid) + "/maps", "", ExitStatus::kRuntime, 64 << 20);
  } catch (const Fault&) {
    return paths;  // it has ended
  }
  size_t start = 0;
  while (start < maps.size()) {
    const size_t end = std::min(maps.find('\n', start), maps.size());
    const std::string line = maps.substr(start, end - start);
    start = end + 1;
    const size_t slash = line.find('/');
    if (slash == std::string::npos || line.find(" r-xp ") == std::string::npos) continue;
    const std::string path = line.substr(slash);
    if (path.find(".so") == std::string::npos) continue;
    if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
  }
  return paths;
}

std::optional<std::string> BuildIdOf(const std::string& path) {
  for (const std::string& notes : ElfFile(path).Notes()) {
    if (auto id = BuildIdIn(notes)) return id;
  }
  return std::nullopt;
}

}  // namespace vorn::kit
