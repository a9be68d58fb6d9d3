#include "kit/fleet/job.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/launch/machine.h"
#include "kit/launch/part_list.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr const char* kSaid = ".said";
constexpr uint64_t kMostAttempts = 1000000;

// The next number that nobody has, by making its folder.
uint64_t TakeNumber(const std::string& folder) {
  MakeFolders(folder);
  uint64_t number = 0;
  for (const std::string& name : NamesIn(folder)) {
    number = std::max<uint64_t>(number, std::strtoull(name.c_str(), nullptr, 10));
  }
  while (++number < kMostAttempts) {
    const std::string part = folder + "/" + std::to_string(number) + std::string(kUnfinishedSuffix);
    if (mkdir(part.c_str(), 0777) == 0) {
      // Whoever had the number may have ended since the names were read.
      const std::string name = part.substr(0, part.size() - kUnfinishedSuffix.size());
      if (!IsTaken(name) && !IsTaken(name + kSaid)) return number;
      (void)rmdir(part.c_str());
    } else if (errno != EEXIST) {
      throw Fault(ExitStatus::kLimit, "cannot make " + Quoted(part) + ": " + SystemReason(errno));
    }
  }
  throw Fault(ExitStatus::kOwnFault, Quoted(folder) + " holds a million attempts");
}

class Attempt {
 public:
  Attempt(const FleetPlan& plan, const AttemptRequest& request, FilesOnBoard files,
          Journal& journal)
      : plan_(plan), request_(request), files_(files), journal_(journal) {
    folder_ = request.chunk ? ChunkFolder(request.fleet, *request.chunk)
                            : CrossFolder(request.fleet, request.board);
    number_ = TakeNumber(folder_);
    part_ = folder_ + "/" + std::to_string(number_) + std::string(kUnfinishedSuffix);
    end_.record.board = request.board;
    end_.record.slot = request.slot;
    end_.record.chunk = request.chunk;
    end_.record.attempt = number_;
  }
  // Where it failed, what was said on the way stays.
  ~Attempt() {
    try {
      if (end_.wasGivenUp || end_.record.outcome == AttemptOutcome::kDone) {
        RemoveTree(part_);
        return;
      }
      for (const std::string& name : NamesIn(part_)) {
        if (!name.ends_with(".err")) RemoveTree(part_ + "/" + name);
      }
    } catch (const Fault&) {
      // It counts for nothing, whatever is in it.
    }
    (void)rename(part_.c_str(), (folder_ + "/" + std::to_string(number_) + kSaid).c_str());
  }
  Attempt(const Attempt&) = delete;
  Attempt& operator=(const Attempt&) = delete;

  AttemptEnd Run(const Engine& engine) {
    if (!request_.doesEngineBegin) Begin();
    try {
      ReadInputs();
      BoardEnd board = engine(WorkOf());
      end_.wasGivenUp = board.wasGivenUp;
      if (end_.wasGivenUp) return std::move(end_);
      TakeBoardEnd(std::move(board));
    } catch (const Fault& fault) {
      Begin();
      end_.record.outcome = AttemptOutcome::kFailed;
      end_.record.blame = Blame::kNobody;
      end_.record.reason = fault.what();
      Note(JournalEvent::kEnd);
      throw;
    }
    Begin();
    Note(JournalEvent::kEnd);
    return std::move(end_);
  }

 private:
  void Note(JournalEvent event) {
    end_.record.event = event;
    end_.record.realtimeNs = RealtimeNs();
    journal_.Note(end_.record);
  }

  void Begin() {
    if (hasBegun_) return;
    hasBegun_ = true;
    JournalRecord begin;
    begin.event = JournalEvent::kBegin;
    begin.realtimeNs = RealtimeNs();
    begin.board = end_.record.board;
    begin.slot = end_.record.slot;
    begin.chunk = end_.record.chunk;
    begin.attempt = end_.record.attempt;
    journal_.Note(begin);
  }

  void ReadInputs() {
    planned_ = ReadPlanned(request_.fleet, plan_, request_.chunk);
    for (const SampleRecord& record : planned_) {
      if (paths_.size() == planned_.size() * plan_.perInference) break;
      const FleetChunk& about = plan_.chunks.at(ChunkOf(plan_, record.index));
      // All of a chunk at once; of the cross-check each, with those of its chunk before it.
      const uint64_t last = request_.chunk ? about.inferences : record.index - about.first + 1;
      const uint64_t first = request_.chunk ? 0 : last - 1;
      const std::vector<std::string> paths =
          ReadPaths(request_.fleet, about.pathsAt, last * plan_.perInference);
      paths_.insert(paths_.end(),
                    paths.begin() + static_cast<ptrdiff_t>(first * plan_.perInference),
                    paths.end());
    }
  }

  // ---- What is to be done -----------------------------------------------------------------------

  // The name by which the launch finds a file of the plan.
  std::string Place(const FileIdentity& file, const std::string& path) {
    if (files_ == FilesOnBoard::kHere) return path;
    end_.files.push_back({.hash = file.xxh3.value_or(""), .path = path});
    return FileInJob(file.xxh3.value_or(""));
  }

  std::string Here(const FileIdentity& file) const { return Below(plan_.from, file.path); }

  BoardWork WorkOf() {
    BoardWork work;
    work.id = plan_.id.substr(0, 8) + "-" +
              (request_.chunk ? std::to_string(*request_.chunk) : std::string("cross")) + "-" +
              std::to_string(number_);
    work.folder = part_;
    work.limit = request_.limit;
    work.laterLimit = request_.laterLimit;
    work.begin = [this] { Begin(); };
    config_ = plan_.configuration;
    std::string configPath = Here(config_);
    if (!request_.config.empty()) {
      config_ = IdentifyFile(request_.config, "the configuration of the board", ExitStatus::kModel);
      configPath = request_.config;
    }
    work.words = {"-m", Place(plan_.model, Here(plan_.model)), "-j", Place(config_, configPath)};
    AddOptions(work.words);
    for (const FileIdentity& file : plan_.configurationFiles) {
      const std::string here = Here(file);
      if (files_ == FilesOnBoard::kHere || file.path.starts_with('/')) continue;
      (void)Place(file, here);
      work.links.emplace_back(file.path, file.xxh3.value_or(""));
    }
    WriteList(work);
    work.files = end_.files;
    return work;
  }

  void AddOptions(std::vector<std::string>& words) {
    const FleetOptions& options = plan_.options;
    const auto add = [&](const char* option, const std::string& value) {
      words.insert(words.end(), {option, value});
    };
    if (options.batch) add("-b", std::to_string(*options.batch));
    if (options.totalT) add("-t", std::to_string(*options.totalT));
    std::string thresholds;
    for (const FileIdentity& file : plan_.thresholds) {
      thresholds += (thresholds.empty() ? "" : ",") + Place(file, Here(file));
    }
    if (!thresholds.empty()) add("-r", thresholds);
    if (options.isProfiled) words.emplace_back("-p");
    if (!options.isTextKept) words.emplace_back("--no-text");
    if (options.areArrays) words.emplace_back("--npy");
    if (!options.isTraced) words.emplace_back("--no-trace");
    if (options.sampleLimitS) add("--sample-timeout", std::to_string(*options.sampleLimitS));
    // In a chunk, so that a sample that ends its process is put aside and the rest goes on.
    add("--chunk", std::to_string(planned_.size()));
    words.emplace_back("--quiet");
  }

  void WriteList(BoardWork& work) {
    PartList list(part_);
    size_t at = 0;
    for (const SampleRecord& record : planned_) {
      for (const SampleInput& input : record.inputs) {
        const std::string& path = paths_.at(at++);
        const bool isHere = files_ == FilesOnBoard::kHere;
        const std::string place = isHere ? list.PathTo(path) : Place(input.file, path);
        if (!isHere) end_.files.back().isInput = true;
        work.list.push_back((plan_.areNamesKept && input.name ? *input.name + ":" : "") + place);
      }
    }
  }

  // ---- What came of it --------------------------------------------------------------------------

  void TakeBoardEnd(BoardEnd board) {
    JournalRecord& record = end_.record;
    record.host = board.host;
    record.machineId = board.machineId;
    record.bootId = board.bootId;
    record.phases = std::move(board.phases);
    record.sentBytes = board.sentBytes;
    record.fetchedBytes = board.fetchedBytes;
    record.blame = board.wasStopped ? Blame::kNobody : board.blame;
    record.reason = board.reason;
    end_.wasStopped = board.wasStopped;
    if (board.wasStopped || !board.hasRun) {
      if (board.wasStopped) record.reason = "was stopped";
      return;
    }
    AttemptFound found = LookAtAttempt(part_ + "/run", plan_, planned_);
    if (found.fault.empty()) {
      found.fault = WhyNotConfigured(*found.facts);
      found.hasOtherFiles = !found.fault.empty();
    }
    record.done = found.done;
    record.notDone = found.notDone;
    if (!found.fault.empty()) {
      // What the board had before it was asked is no fault of the chunk's.
      const bool isBoards = found.hasOtherFiles && files_ == FilesOnBoard::kByHash;
      Fail(isBoards ? Blame::kBoard : Blame::kUnknown, "its outputs do not count: " + found.fault);
      end_.hasOtherFiles = found.hasOtherFiles;
    } else if (found.done == planned_.size()) {
      Keep(found, AttemptOutcome::kDone);
    } else if (found.done + found.notDone == 0) {
      Fail(Blame::kBoard, record.reason.empty() ? "nothing was run" : record.reason);
    } else if (found.done == 0) {
      Fail(Blame::kUnknown, WhyNotDone(found));
    } else {
      // The launch went through all of them, or was cut short.
      const bool isThrough = found.done + found.notDone == planned_.size();
      record.blame = isThrough ? Blame::kSamples : Blame::kUnknown;
      record.reason = WhyNotDone(found);
      Keep(found, AttemptOutcome::kPartial);
    }
  }

  // Empty: it ran with the configuration that it was given, and with what that names beside it.
  std::string WhyNotConfigured(const RunFacts& facts) const {
    if (facts.configuration && facts.configuration->xxh3 != config_.xxh3) {
      return "it ran with another configuration than it was given";
    }
    if (!request_.config.empty() || !facts.configurationFiles) return "";
    for (const FileIdentity& planned : plan_.configurationFiles) {
      for (const FileIdentity& found : *facts.configurationFiles) {
        // One from the root on is the board's own.
        const bool isIt = found.path == planned.path && !planned.path.starts_with('/');
        if (!isIt || found.xxh3 == planned.xxh3) continue;
        return "it ran with another " + Quoted(planned.path) + " than planned";
      }
    }
    return "";
  }

  std::string WhyNotDone(const AttemptFound& found) const {
    for (size_t i = 0; i < found.samples.size(); ++i) {
      const SampleRecord& sample = found.samples[i];
      const bool wasTried =
          sample.status == SampleStatus::kAside || sample.status == SampleStatus::kFailed;
      if (!wasTried) continue;
      return Counted(planned_.size() - found.done, "inference") + " not done, first " +
             std::to_string(planned_[i].index) + ": " + sample.reason.value_or("failed");
    }
    return end_.record.reason;
  }

  void Fail(Blame blame, std::string reason) {
    end_.record.outcome = AttemptOutcome::kFailed;
    end_.record.blame = blame;
    end_.record.reason = std::move(reason);
    end_.record.done = 0;
  }

  void Keep(const AttemptFound& found, AttemptOutcome outcome) {
    end_.record.outcome = outcome;
    if (outcome == AttemptOutcome::kDone) {
      end_.record.blame = Blame::kNobody;
      end_.record.reason.clear();
    }
    end_.record.outputs = OutputsHash(found.samples);
    MoveFolder(part_ + "/run", folder_ + "/" + std::to_string(number_));
  }

  const FleetPlan& plan_;
  const AttemptRequest& request_;
  FilesOnBoard files_;
  Journal& journal_;
  std::string folder_;
  std::string part_;
  uint64_t number_ = 0;
  std::vector<SampleRecord> planned_;
  std::vector<std::string> paths_;
  FileIdentity config_;  // of the configuration that is to be taken
  bool hasBegun_ = false;
  AttemptEnd end_;
};

}  // namespace

AttemptEnd RunAttempt(const FleetPlan& plan, const AttemptRequest& request, FilesOnBoard files,
                      const Engine& engine, Journal& journal) {
  return Attempt(plan, request, files, journal).Run(engine);
}

std::optional<std::chrono::seconds> LimitOf(std::vector<uint64_t> times, uint64_t inferences) {
  constexpr double kTimes = 10;
  constexpr double kMoreNs = 120e9;
  constexpr double kMostS = 30 * 24 * 3600;
  if (times.empty()) return std::nullopt;
  const auto middle = times.begin() + static_cast<ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  const double limit =
      (static_cast<double>(*middle) * static_cast<double>(inferences) * kTimes + kMoreNs) / 1e9;
  return std::chrono::seconds(static_cast<int64_t>(std::ceil(std::min(limit, kMostS))));
}

}  // namespace vorn::kit
