#include "kit/fleet/tools.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/folder_names.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/fleet/child.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

// All of the board's side; the first two are needed.
constexpr std::array kOwnTools{"vorn-launch",  "vorn-run",   "vorn",
                               "vorn-inspect", "vorn-trace", "libvorn-trace.so"};

bool IsFile(const std::string& path) {
  struct stat about {};
  return stat(path.c_str(), &about) == 0 && S_ISREG(about.st_mode);
}

bool IsFolder(const std::string& path) {
  struct stat about {};
  return stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
}

std::string Unpack(const std::string& archive, const std::string& scratch, StopSignals& signals) {
  const std::string folder = scratch + "/tools-" + Xxh3Of(archive);
  RemoveTree(folder);
  MakeFolders(folder);
  const ChildRequest request{.command = {"tar", "-xf", archive, "-C", folder, "--no-same-owner"},
                             .input = {},
                             .inputFile = {},
                             .isKeptAlive = false,
                             .out = scratch + "/tar.out",
                             .err = scratch + "/tar.err",
                             .limit = {}};
  const ChildEnd end = RunChild(request, signals);
  if (!end.IsDone()) {
    throw Fault(ExitStatus::kUsage, "the tools " + Quoted(archive) + " cannot be unpacked: tar " +
                                        DescribeChildEnd(end) +
                                        "; it said: " + LastLineOf(request.err));
  }
  // The archive has one folder, which has all.
  const std::vector<std::string> names = NamesIn(folder);
  return names.size() == 1 && IsFolder(folder + "/" + names[0]) ? folder + "/" + names[0] : folder;
}

}  // namespace

Tools FindTools(const std::string& from, const std::string& scratch, StopSignals& signals) {
  Tools tools;
  tools.folder = from.empty()     ? OwnFolder()
                 : IsFolder(from) ? from
                                  : Unpack(from, scratch, signals);
  for (const char* needed : {kOwnTools[0], kOwnTools[1]}) {
    if (IsFile(tools.folder + "/" + needed)) continue;
    throw Fault(ExitStatus::kUsage,
                "the tools for the boards: there is no " + Quoted(needed) + " in " +
                    Quoted(from.empty() ? tools.folder : from) +
                    "; name a folder or an archive of scripts/board.sh as 'tools' of the board");
  }
  if (from.empty()) {
    for (const char* name : kOwnTools) {
      if (IsFile(tools.folder + "/" + name)) tools.files.emplace_back(name);
    }
  } else {
    for (std::string& name : NamesIn(tools.folder)) {
      if (IsFile(tools.folder + "/" + name)) tools.files.push_back(std::move(name));
    }
  }
  Xxh3Stream hash;
  for (const std::string& name : tools.files) {
    const FileIdentity file =
        IdentifyFile(tools.folder + "/" + name, "a tool for the boards", ExitStatus::kUsage);
    hash.Add(name + "\n" + file.xxh3.value_or("") + "\n");
  }
  tools.id = hash.Digits();
  return tools;
}

}  // namespace vorn::kit
