#include "kit/ledger/ledger_place.h"

#include <sys/stat.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// From <linux/magic.h>, which has not all of them.
constexpr std::array<std::pair<unsigned long, const char*>, 15> kNetworkFileSystems{{
    {0x6969, "NFS"},
    {0x517b, "SMB"},
    {0xff534d42, "CIFS"},
    {0xfe534d42, "SMB 2"},
    {0x01021997, "9P"},
    {0x5346414f, "OpenAFS"},
    {0x6b414653, "AFS"},
    {0x73757245, "Coda"},
    {0x00c36400, "Ceph"},
    {0x0bd00bd0, "Lustre"},
    {0x47504653, "GPFS"},
    {0x7461636f, "OCFS2"},
    {0x01161970, "GFS2"},
    {0x19830326, "BeeGFS"},
    {0x786f4256, "a shared folder of a virtual machine"},
}};

std::string Variable(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

std::string LedgerPath(const std::string& named) {
  if (!named.empty()) return Absolute(named);
  if (const std::string path = Variable("VORN_HISTORY"); !path.empty()) return Absolute(path);
  constexpr const char* kName = "/vorn/history.sqlite";
  // A relative one is to be passed over, says who made the variable.
  if (const std::string folder = Variable("XDG_DATA_HOME"); folder.starts_with('/')) {
    return Absolute(folder + kName);
  }
  if (const std::string home = Variable("HOME"); home.starts_with('/')) {
    return Absolute(home + "/.local/share" + kName);
  }
  throw Fault(ExitStatus::kUsage,
              "nothing says where the history is: neither --db nor VORN_HISTORY, XDG_DATA_HOME or "
              "HOME is set");
}

std::optional<std::string> NetworkFileSystem(unsigned long type) {
  for (const auto& [number, name] : kNetworkFileSystems) {
    if (number == (type & 0xffffffffUL)) return name;
  }
  return std::nullopt;
}

void HoldToLocalFile(const std::string& path) {
  struct stat about {};
  const bool isThere = stat(path.c_str(), &about) == 0;
  if (isThere && !S_ISREG(about.st_mode)) {
    throw Fault(ExitStatus::kInput, "the history " + Quoted(path) +
                                        " is no file; name the file of a database with --db");
  }
  // The library would take so few bytes for an empty database, and write over them.
  constexpr off_t kLeastDatabase = 512;
  if (isThere && about.st_size > 0 && about.st_size < kLeastDatabase) {
    throw Fault(ExitStatus::kInput, "the history " + Quoted(path) +
                                        " is no database; name the right file with --db, or move "
                                        "this one away");
  }
  struct statfs system {};
  const std::string place = isThere ? path : FolderOf(path);
  if (statfs(place.c_str(), &system) != 0) return;  // whoever opens it says what is wrong
  if (const auto name = NetworkFileSystem(static_cast<unsigned long>(system.f_type))) {
    throw Fault(ExitStatus::kLimit, "the history " + Quoted(path) +
                                        " is on a network file system (" + *name +
                                        "), whose locks do not keep two writers apart; put it on a "
                                        "local disk, and add the run directories from there");
  }
}

void MakeFoldersOf(const std::string& path) {
  const std::string folder = FolderOf(path);
  if (folder == "/" || IsThere(folder)) return;
  MakeFoldersOf(folder);
  constexpr mode_t kForOwner = 0700;
  if (mkdir(folder.c_str(), kForOwner) == 0 || errno == EEXIST) return;
  throw Fault(ExitStatus::kLimit,
              "cannot make the folder " + Quoted(folder) + ": " + SystemReason(errno));
}

}  // namespace vorn::kit
