#include "kit/calibrate/work_folder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <optional>
#include <string_view>

#include "kit/common/fault.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSuffix = ".work";
constexpr const char* kLockFile = "/.lock";

struct Place {
  std::string folder;
  std::string name;
};

Place PlaceOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return {".", path};
  return {slash == 0 ? "/" : path.substr(0, slash), path.substr(slash + 1)};
}

// The process of "NAME.PID.work".
std::optional<pid_t> ProcessIn(std::string_view folder, std::string_view output) {
  if (!folder.starts_with(output) || !folder.ends_with(kSuffix)) return std::nullopt;
  folder.remove_prefix(output.size());
  if (folder.size() <= 1 + kSuffix.size() || folder.front() != '.') return std::nullopt;
  const std::string_view digits = folder.substr(1, folder.size() - 1 - kSuffix.size());
  pid_t pid = 0;
  const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
  const bool isWhole = error == std::errc{} && stop == digits.data() + digits.size() && pid > 0;
  return isWhole ? std::optional(pid) : std::nullopt;
}

// The lock tells, and of a folder whose maker was cut off before it had it, the process's number.
bool IsLeft(const std::string& folder, pid_t pid) {
  struct stat about {};
  if (lstat(folder.c_str(), &about) != 0 || !S_ISDIR(about.st_mode)) return false;
  const OwnedFile lock(
      open((folder + kLockFile).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (!lock.IsOpen()) return errno == ENOENT && kill(pid, 0) != 0 && errno == ESRCH;
  const bool isFree = flock(lock.Get(), LOCK_EX | LOCK_NB) == 0;
  const bool wasHeld = fstat(lock.Get(), &about) == 0 && about.st_size > 0;
  if (!isFree) return false;
  return wasHeld || (kill(pid, 0) != 0 && errno == ESRCH);
}

}  // namespace

WorkFolder::WorkFolder(const std::string& output) {
  struct stat about {};
  const bool isFolder = stat(output.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
  if (isFolder || output.ends_with('/')) {
    throw Fault(ExitStatus::kUsage,
                "-o " + Quoted(output) + " is a folder; name the file that is to be made in it");
  }
  if (output.empty() || output.find('\n') != std::string::npos) {
    throw Fault(ExitStatus::kUsage,
                "-o " + Quoted(output) +
                    (output.empty() ? " names nothing" : " holds a line end; give another name"));
  }
  RemoveLeft(output);
  Make(output);
}

WorkFolder::~WorkFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void WorkFolder::RemoveLeft(const std::string& output) {
  const Place place = PlaceOf(output);
  for (const std::string& name : NamesIn(place.folder)) {
    const auto pid = ProcessIn(name, place.name);
    const std::string folder = place.folder + "/" + name;
    if (!pid || !IsLeft(folder, *pid)) continue;
    std::error_code error;
    fs::remove_all(folder, error);
    if (!error) removed_.push_back(folder);
  }
}

void WorkFolder::Make(const std::string& output) {
  path_ = output + "." + std::to_string(getpid()) + std::string(kSuffix);
  std::error_code error;
  fs::create_directories(PlaceOf(output).folder, error);
  const bool isMade = !error && mkdir(path_.c_str(), 0777) == 0;
  if (!isMade) {
    const std::string reason = error ? error.message() : SystemReason(errno);
    throw Fault(ExitStatus::kLimit, "-o " + Quoted(output) + " cannot be written: the folder " +
                                        Quoted(path_) + " cannot be made beside it: " + reason);
  }
  // Without O_CLOEXEC: what this process starts may outlive it for a moment, and works in there.
  lock_ =
      OwnedFile(open((path_ + kLockFile).c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW, 0666));
  const bool isHeld = lock_.IsOpen() && flock(lock_.Get(), LOCK_EX | LOCK_NB) == 0 &&
                      write(lock_.Get(), "\n", 1) == 1;
  if (isHeld) return;
  const int reason = errno;
  std::error_code ignored;
  fs::remove_all(path_, ignored);
  throw Fault(ExitStatus::kLimit, "-o " + Quoted(output) + " cannot be written: " +
                                      Quoted(path_ + kLockFile) + ": " + SystemReason(reason));
}

}  // namespace vorn::kit
