#include "kit/launch/run_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>

#include "kit/common/fault.h"
#include "kit/common/folder_lock.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

constexpr const char* kFiles[] = {kRunFile,     kModelFile, kSamplesFile, kTimesFile,
                                  kMachineFile, kLogFile,   kErrorsFile,  kTraceFile};

// Whether a killed launch left it of a file that was not whole yet.
bool IsUnfinished(const std::string& name) {
  if (!name.ends_with(kUnfinishedSuffix)) return false;
  return std::any_of(std::begin(kFiles), std::end(kFiles), [&](const std::string& file) {
    const std::string_view between =
        std::string_view(name).substr(0, name.size() - kUnfinishedSuffix.size());
    return between.starts_with(file + ".") &&
           between.find_first_not_of("0123456789", file.size() + 1) == between.npos;
  });
}

[[noreturn]] void RefuseFolder(const std::string& what, const std::string& path, int error) {
  throw Fault(ExitStatus::kLimit,
              "cannot " + what + " '" + Printable(path) + "': " + SystemReason(error));
}

struct LinePlace {
  uint64_t offset = 0;
  uint32_t length = 0;  // 0: there is none
};

// Less where the file ends before.
std::string ReadPart(const OwnedFile& file, uint64_t offset, size_t most) {
  struct stat about {};
  const bool isKnown = fstat(file.Get(), &about) == 0 && about.st_size > 0;
  // Room for what is there: most of the time that is far less than what may be. The kernel's own
  // files tell no size.
  if (isKnown) {
    const auto size = static_cast<uint64_t>(about.st_size);
    most = std::min<uint64_t>(most, size - std::min(size, offset));
  }
  std::string bytes(most, '\0');
  size_t done = 0;
  while (done < most) {
    const ssize_t got =
        pread(file.Get(), bytes.data() + done, most - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

}  // namespace

RunFolder::RunFolder(const std::string& path, bool isResumed) : path_(path) {
  MakeFolders(path);
  lock_ = OwnedFile(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!lock_.IsOpen()) RefuseFolder("open the folder", path, errno);
  Take(isResumed);
}

void RunFolder::Take(bool isResumed) {
  if (!TakeLock(lock_, std::chrono::seconds(1))) {
    Refuse("belongs to a launch or a merge that runs now; wait for it, or name another with --run");
  }
  const std::vector<std::string> names = NamesIn(path_);
  if (!names.empty() && !isResumed) {
    Refuse("is not empty; name another with --run, or go on with the run in it by --resume");
  }
  if (names.empty()) return;
  if (access(Path(kRunFile).c_str(), F_OK) != 0) {
    // A launch that was killed at once has left the beginning of its record; anything else is not
    // ours to write into.
    for (const std::string& name : names) {
      if (!IsUnfinished(name)) Refuse("holds something else than a run");
    }
  }
  CheckPlaces();
  WaitForProgram();
  for (const std::string& name : names) {
    if (IsUnfinished(name)) unlink(Path(name).c_str());
  }
  if (access(Path(kRunFile).c_str(), F_OK) == 0) before_ = ReadRun(path_);
}

// To open a pipe would be to wait for its other end, and a folder would be removed for a file. What
// a link leads to is somebody else's.
void RunFolder::CheckPlaces() const {
  const auto check = [&](const std::string& name, bool isFolder) {
    struct stat about {};
    const std::string path = Path(name);
    if (lstat(path.c_str(), &about) != 0) return;
    if (S_ISLNK(about.st_mode)) {
      throw Fault(ExitStatus::kUsage,
                  Quoted(path) +
                      " is a link, and the run writes into its own folder only; put in "
                      "its place what it leads to");
    }
    if (isFolder ? S_ISDIR(about.st_mode) : S_ISREG(about.st_mode)) return;
    const char* what = " is no regular file, and the run needs one there; move it away";
    if (isFolder) {
      what = " is no folder, and the run needs one there; move it away";
    } else if (S_ISDIR(about.st_mode)) {
      what = " is a folder, and the run needs a file there; move it away";
    }
    throw Fault(ExitStatus::kUsage, Quoted(path) + what);
  };
  for (const char* name : kFiles) check(name, false);
  check(kDumpsFolder, true);
  check(kChunksFolder, true);
}

// What a program that outlived its launch writes would get among what is written now: a script that
// was killed leaves the program that it started. The log is locked as long as one has it.
void RunFolder::WaitForProgram() const {
  const OwnedFile log(open(Path(kLogFile).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!log.IsOpen() || TakeLock(log, std::chrono::seconds(3))) return;
  Refuse("belongs to a program that an earlier launch started and that still runs, with " +
         Quoted(Path(kLogFile)) + " open; end it, or name another with --run");
}

void RunFolder::Refuse(const std::string& what) const {
  throw Fault(ExitStatus::kUsage, Quoted(path_) + " " + what);
}

void MakeFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string folder = path.substr(0, slash);
    if (mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST && slash == std::string::npos) {
      RefuseFolder("make the folder", path, errno);
    }
    if (slash == std::string::npos) break;
  }
}

void RemoveTree(const std::string& path) {
  struct stat about {};
  if (lstat(path.c_str(), &about) != 0) return;
  if (!S_ISDIR(about.st_mode)) {
    if (unlink(path.c_str()) != 0 && errno != ENOENT) RefuseFolder("remove", path, errno);
    return;
  }
  for (const std::string& name : NamesIn(path)) RemoveTree(path + "/" + name);
  if (rmdir(path.c_str()) != 0 && errno != ENOENT) RefuseFolder("remove", path, errno);
}

bool MoveFolderIfThere(const std::string& from, const std::string& to) {
  // Nearly always nothing is in its place.
  if (std::rename(from.c_str(), to.c_str()) == 0) return true;
  if (access(from.c_str(), F_OK) != 0) return false;
  RemoveTree(to);
  if (std::rename(from.c_str(), to.c_str()) != 0) RefuseFolder("move", from, errno);
  return true;
}

void MoveFolder(const std::string& from, const std::string& to) {
  if (!MoveFolderIfThere(from, to)) RefuseFolder("move", from, ENOENT);
}

bool IsDiskFull(const std::string& folder) {
  constexpr uint64_t kLeast = 32 * 1024;
  struct statvfs disk {};
  return statvfs(folder.c_str(), &disk) == 0 && uint64_t{disk.f_bavail} * disk.f_frsize < kLeast;
}

std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> real(realpath(path.c_str(), nullptr), std::free);
  return real == nullptr ? "" : std::string(real.get());
}

uint64_t SizeOfFile(const std::string& path) {
  struct stat about {};
  return stat(path.c_str(), &about) == 0 ? static_cast<uint64_t>(about.st_size) : 0;
}

std::string ReadFrom(const std::string& path, uint64_t offset, size_t most) {
  const OwnedFile file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  return file.IsOpen() ? ReadPart(file, offset, most) : "";
}

void SortSamples(const std::string& path, uint64_t count,
                 const std::function<SampleRecord(uint64_t index)>& missing,
                 const std::function<void(const SampleRecord&)>& show) {
  std::vector<LinePlace> places(count);
  uint64_t offset = 0;
  if (access(path.c_str(), F_OK) == 0) {
    ForEachLine(path, "the samples of the run", ExitStatus::kLimit, [&](std::string_view line) {
      const uint64_t index = SampleFromLine(line).index;
      if (index < count) {
        places[index] = {.offset = offset, .length = static_cast<uint32_t>(line.size())};
      }
      offset += line.size() + 1;
    });
  }
  const OwnedFile unsorted(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  WholeFile sorted(path);
  for (uint64_t index = 0; index < count; ++index) {
    const LinePlace& place = places[index];
    const SampleRecord record =
        place.length == 0 ? missing(index)
                          : SampleFromLine(ReadPart(unsorted, place.offset, place.length));
    sorted.Append(ToLine(record));
    show(record);
  }
  sorted.Finish();
}

}  // namespace vorn::kit
