#include "kit/fleet/here_board.h"

#include <unistd.h>

#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/fleet/child.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

std::string FirstLineOf(const std::string& path) {
  constexpr size_t kMost = 200;
  const std::string text = ReadFrom(path, 0, kMost);
  return Printable(text.substr(0, text.find('\n')));
}

}  // namespace

BoardEnd RunHere(const BoardWork& work, const std::string& from, StopSignals& signals) {
  constexpr std::chrono::seconds kToEndInOrder{60};
  BoardEnd end;
  end.host = DescribeMachine().host;
  end.machineId = FirstLineOf("/etc/machine-id");
  end.bootId = FirstLineOf("/proc/sys/kernel/random/boot_id");
  std::string list;
  for (const std::string& line : work.list) list += line + "\n";
  WriteWholeFile(work.folder + "/list.txt", list);
  ChildRequest request{.command = {OwnFolder() + "/vorn-launch"},
                       .folder = from,
                       .input = {},
                       .inputFile = {},
                       .isKeptAlive = true,
                       .out = work.folder + "/launch.out",
                       .err = work.folder + "/launch.err",
                       .limit = {}};
  auto& words = request.command;
  words.insert(words.end(), work.words.begin(), work.words.end());
  words.insert(words.end(), {"-i", work.folder + "/list.txt", "--run", work.folder + "/run",
                             "--lifeline", "60"});
  if (work.limit) {
    words.insert(words.end(), {"--timeout", std::to_string(work.limit->count())});
    request.limit = *work.limit + kToEndInOrder;
  }
  request.laterLimit = work.laterLimit;
  const ChildEnd child = RunChild(request, signals);
  end.phases["launch"] = static_cast<uint64_t>(child.time.count());
  end.wasStopped = child.wasStopped;
  if (child.wasStopped) return end;
  end.hasRun = access((work.folder + "/run/run.json").c_str(), F_OK) == 0;
  if (child.status == 0 && !child.wasLate) return end;
  end.blame = end.hasRun ? Blame::kUnknown : Blame::kBoard;
  const std::string said = LastLineOf(request.err);
  end.reason = "the launch " + DescribeChildEnd(child) + (said.empty() ? "" : "; it said: " + said);
  return end;
}

}  // namespace vorn::kit
