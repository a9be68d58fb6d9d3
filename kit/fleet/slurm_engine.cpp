#include "kit/fleet/slurm_engine.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <iterator>
#include <map>

#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_lock.h"
#include "kit/common/folder_names.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/fleet/child.h"
#include "kit/fleet/fleet_run.h"
#include "kit/fleet/lost_attempts.h"
#include "kit/fleet/progress.h"
#include "kit/fleet/slurm.h"
#include "kit/fleet/slurm_task.h"
#include "kit/fleet/ssh_board.h"
#include "kit/json/json.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostFileBytes = 16 << 20;
constexpr size_t kMostArrays = 50;         // of a round; the rest waits for the next one
constexpr int kRoundsWithoutEnd = 2;       // then another one would do no more
constexpr const char* kEndInOrder = "60";  // seconds before the limit of a job
constexpr std::string_view kArrayKind = "array";
constexpr std::string_view kAfterKind = "after";

std::string TextOf(const std::vector<std::string>& words, const char* between) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
  return text;
}

std::set<std::string> NodesAside(const FleetState& state) {
  std::set<std::string> aside;
  for (const auto& [name, board] : state.boards) {
    if (board.isAside) aside.insert(name);
  }
  return aside;
}

std::vector<std::string> LinesIn(const std::string& path) {
  std::vector<std::string> lines;
  if (!IsThere(path)) return lines;
  const std::string text =
      ReadWholeFile(path, "a file of the round", ExitStatus::kInput, kMostFileBytes);
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

// Slurm replaces what stands behind a '%' in all of the path, and in the folder of a file that is
// named without one, too.
std::string OutputWord(const std::string& folder, const std::string& file) {
  std::string word = "--output=";
  for (const char c : folder) word += c == '%' ? std::string("%%") : std::string(1, c);
  return word + "/" + file;
}

// Behind a backslash it replaces nothing more, not even the number of the task.
void CheckPathForSlurm(const std::string& fleet) {
  if (fleet.find('\\') == std::string::npos) return;
  throw Fault(ExitStatus::kUsage, "the path " + Quoted(fleet) +
                                      " holds a backslash, by which Slurm writes no files of "
                                      "jobs; give the folder another name");
}

// The last round that was begun; 0: none was.
uint64_t LastRound(const std::string& fleet) {
  uint64_t last = 0;
  for (const uint64_t round : AttemptsIn(SlurmFolder(fleet))) last = std::max(last, round);
  return last;
}

struct JobsOfRound {
  std::vector<std::string> arrays;
  std::string after;  ///< empty: there is none
};

JobsOfRound ReadJobs(const std::string& fleet, uint64_t round) {
  JobsOfRound jobs;
  for (const std::string& line : LinesIn(SlurmRound(fleet, round) + "/jobs.txt")) {
    const size_t space = line.find(' ');
    if (space == std::string::npos) continue;
    const std::string id = line.substr(space + 1);
    if (line.substr(0, space) == kArrayKind) jobs.arrays.push_back(id);
    if (line.substr(0, space) == kAfterKind) jobs.after = id;
  }
  return jobs;
}

class SlurmRun {
 public:
  SlurmRun(const SlurmRunRequest& request, Console& console)
      : request_(request),
        fleet_(request.fleet),
        plan_(ReadFleetPlan(fleet_)),
        lock_(fleet_, "fleet"),
        console_(console),
        slurm_(ScratchOf(fleet_), signals_),
        journal_(fleet_, "control") {}

  ExitStatus Run() {
    CheckPathForSlurm(fleet_);
    TakeWords();
    nodes_ = slurm_.Nodes();
    maxArraySize_ = slurm_.MaxArraySize();
    if (signals_.Asked() != 0) return ExitStatus::kPartial;
    EndWhatWasBefore();
    if (!request_.after && !VerifyAttempts(fleet_, plan_, request_.isAgain, console_, signals_)) {
      return TellOfStop(fleet_, console_);
    }
    FleetState state = ReadFleetState(fleet_, plan_);
    progress_.Begin(state);
    int withoutEnd =
        request_.after && state.Ends() == EndsBefore(*request_.after) ? kRoundsWithoutEnd : 0;
    while (!ChunksToDo(state).empty() && signals_.Asked() == 0 && withoutEnd < kRoundsWithoutEnd) {
      const uint64_t before = state.Ends();
      if (!HandIn(state)) break;
      if (!request_.isWaiting) return Leave();
      Await();
      if (signals_.Asked() != 0) CancelJobs();
      NoteLost();
      state = ReadFleetState(fleet_, plan_);
      progress_.TellOfBoards(state);
      withoutEnd = state.Ends() == before ? withoutEnd + 1 : 0;
      if (withoutEnd > 0) TellWhatJobsSaid();
    }
    if (signals_.Asked() != 0) console_.Say("was stopped");
    return TellOfEnd(fleet_, plan_, state, console_);
  }

 private:
  static std::string ScratchOf(const std::string& fleet) {
    MakeFolders(SlurmFolder(fleet));
    return SlurmFolder(fleet);
  }

  void TakeWords() {
    const std::string kept = SlurmFolder(fleet_) + "/words.json";
    words_ = request_.words;
    if (words_.empty() && request_.isResumed && IsThere(kept)) {
      try {
        const Json words = ParseJson(
            ReadWholeFile(kept, "the words for sbatch", ExitStatus::kInput, kMostFileBytes));
        for (const Json& word : words.Items()) words_.push_back(word.AsText());
      } catch (const JsonError& error) {
        throw Fault(ExitStatus::kInput, Quoted(kept) + " cannot be read: " + error.what());
      }
    }
    for (const std::string& word : words_) {
      if (word.starts_with('-') && word.size() > 1) continue;
      throw Fault(ExitStatus::kUsage,
                  Quoted(word) +
                      " is no option for sbatch; give each with its value in one word, "
                      "as --partition=NAME");
    }
    if (!request_.isResumed) HoldToFirstRun(fleet_);
    WriteWholeFile(kept, ToText(Json::ArrayOf(words_)) + "\n");
  }

  // ---- Jobs of a run before ---------------------------------------------------------------------

  // Two that do the same harm nobody, but they take twice the time.
  void EndWhatWasBefore() {
    round_ = LastRound(fleet_);
    if (request_.after) {
      TakeOverFrom(*request_.after);
      NoteLost();
      return;
    }
    if (round_ == 0) return;
    const JobsOfRound jobs = ReadJobs(fleet_, round_);
    if (!jobs.after.empty() && PlaceOf(jobs.after) != Slurm::Place::kGone) {
      throw Fault(ExitStatus::kUsage,
                  "Slurm has the fleet in hand: job " + jobs.after +
                      " goes on with it when those before it are over; see 'squeue', or end it "
                      "with '" +
                      QuotedCommand(CancelCommand(jobs)) + "'");
    }
    jobs_ = jobs.arrays;
    if (AreOver()) {
      NoteLost();
      return;
    }
    if (!request_.isWaiting) {
      throw Fault(ExitStatus::kUsage,
                  "jobs of the run before are in Slurm's hands still; end them "
                  "with '" +
                      QuotedCommand(CancelCommand(jobs)) + "', or wait");
    }
    console_.Say("waiting for jobs of the run before: " + TextOf(jobs_, ", "));
    Await();
    if (signals_.Asked() != 0) CancelJobs();
    NoteLost();
  }

  static std::vector<std::string> CancelCommand(const JobsOfRound& jobs) {
    std::vector<std::string> words{"scancel"};
    words.insert(words.end(), jobs.arrays.begin(), jobs.arrays.end());
    if (!jobs.after.empty()) words.push_back(jobs.after);
    return words;
  }

  // The job behind a round may have been cut off while it handed in the next one, and be started
  // again.
  void TakeOverFrom(uint64_t round) {
    if (round_ <= round) return;
    const JobsOfRound jobs = ReadJobs(fleet_, round_);
    if (!jobs.after.empty()) {
      throw Fault(ExitStatus::kPartial,
                  "round " + std::to_string(round_) + " was handed in already");
    }
    for (const std::string& id : jobs.arrays) slurm_.Cancel(id);
    jobs_ = jobs.arrays;
    Await();
  }

  uint64_t EndsBefore(uint64_t round) const {
    const std::vector<std::string> lines = LinesIn(SlurmRound(fleet_, round) + "/ends");
    uint64_t ends = UINT64_MAX;
    if (!lines.empty()) {
      (void)std::from_chars(lines[0].data(), lines[0].data() + lines[0].size(), ends);
    }
    return ends;
  }

  // ---- A round ----------------------------------------------------------------------------------

  // False where no node is left that could take any of it.
  bool HandIn(const FleetState& state) {
    const std::vector<ArrayOfChunks> arrays = ArraysOf(state, ChunksToDo(state), nodes_);
    if (arrays.empty()) {
      console_.Say("no node is left for what is to do");
      return false;
    }
    ++round_;
    const std::string folder = SlurmRound(fleet_, round_);
    MakeFolders(folder);
    WriteWholeFile(folder + "/ends", std::to_string(state.Ends()) + "\n");
    LineFile jobs(folder + "/jobs.txt");
    jobs_.clear();
    uint64_t handedIn = 0;
    for (size_t i = 0; i < std::min(arrays.size(), kMostArrays); ++i) {
      if (!HandInArray(arrays[i], i, jobs)) continue;
      handedIn += arrays[i].chunks.size();
    }
    if (jobs_.empty()) return false;
    console_.Say("handed " + Counted(handedIn, "chunk") + " to Slurm as " +
                 (jobs_.size() == 1 ? "job " : "jobs ") + TextOf(jobs_, ", "));
    if (!request_.isWaiting) HandInAfter(jobs);
    return true;
  }

  bool HandInArray(const ArrayOfChunks& array, uint64_t number, LineFile& jobs) {
    const std::string folder = SlurmRound(fleet_, round_);
    std::string lines;
    for (const uint64_t chunk : array.chunks) lines += std::to_string(chunk) + "\n";
    WriteWholeFile(ArrayChunksFile(fleet_, round_, number), lines);
    const uint64_t tasks = std::min<uint64_t>(array.chunks.size(), maxArraySize_);
    try {
      jobs_.push_back(slurm_.Submit(
          {.words = ArrayWords(folder, number, tasks, array.without, words_),
           .script = ScriptOf({"task", fleet_, "--round", std::to_string(round_), "--array",
                               std::to_string(number), "--tasks", std::to_string(tasks)})}));
    } catch (const Fault& fault) {
      // Nodes that are left may not be of the partition, or not have what is asked for.
      if (array.without.empty() || fault.Status() != ExitStatus::kUsage) throw;
      console_.Say(fault.what());
      return false;
    }
    jobs.Append(std::string(kArrayKind) + " " + jobs_.back() + "\n");
    jobs.Sync();
    return true;
  }

  void HandInAfter(LineFile& jobs) {
    std::vector<std::string> words{"--dependency=afterany:" + TextOf(jobs_, ":"),
                                   "--job-name=vorn-fleet-after",
                                   "--chdir=" + SlurmRound(fleet_, round_),
                                   OutputWord(SlurmRound(fleet_, round_), "after.log"),
                                   "--open-mode=append",
                                   "--requeue"};
    words.insert(words.end(), words_.begin(), words_.end());
    after_ = slurm_.Submit({.words = words,
                            .script = ScriptOf({"resume", fleet_, "--on", "slurm", "--no-wait",
                                                "--after", std::to_string(round_)})});
    jobs.Append(std::string(kAfterKind) + " " + after_ + "\n");
    jobs.Sync();
  }

  static std::string ScriptOf(const std::vector<std::string>& words) {
    std::string script = "#!/bin/sh\nexec " + ShellWord(OwnFolder() + "/vorn-fleet");
    for (const std::string& word : words) script += " " + ShellWord(word);
    return script + "\n";
  }

  ExitStatus Leave() {
    console_.Say("job " + after_ + " goes on when they are over; " +
                 QuotedCommand({"vorn", "fleet", "status", fleet_}) + " tells how far it is");
    return ExitStatus::kPartial;
  }

  Slurm::Place PlaceOf(const std::string& id) {
    Slurm::Place place = slurm_.PlaceOf(id);
    while (place == Slurm::Place::kNotKnown && signals_.Asked() == 0) {
      if (!isSilent_) console_.Say("Slurm does not answer now; waiting for it");
      isSilent_ = true;
      WaitFor(std::chrono::seconds(2));
      place = slurm_.PlaceOf(id);
    }
    isSilent_ = false;
    return place;
  }

  bool AreOver() {
    while (!jobs_.empty() && signals_.Asked() == 0) {
      if (PlaceOf(jobs_.back()) != Slurm::Place::kGone) return false;
      jobs_.pop_back();
    }
    return jobs_.empty();
  }

  void WaitFor(std::chrono::milliseconds time) {
    constexpr std::chrono::milliseconds kTick{100};
    const auto until = std::chrono::steady_clock::now() + time;
    while (signals_.Asked() == 0 && std::chrono::steady_clock::now() < until) {
      signals_.Wait(kTick);
      progress_.Show();
    }
  }

  // A cluster has others to answer, too.
  void Await() {
    constexpr int kShare = 50;
    const std::vector<std::string> all = jobs_;
    while (signals_.Asked() == 0) {
      const auto asked = std::chrono::steady_clock::now();
      if (AreOver()) return;
      const auto took = std::chrono::steady_clock::now() - asked;
      WaitFor(std::max(std::chrono::duration_cast<std::chrono::milliseconds>(took * kShare),
                       std::chrono::milliseconds(1000)));
    }
    jobs_ = all;
  }

  void CancelJobs() {
    constexpr int kTries = 300;
    for (const std::string& id : jobs_) slurm_.Cancel(id);
    // Until they are over nobody knows what they leave. Whoever does not want to wait kills this.
    StopSignals anew;
    Slurm slurm(SlurmFolder(fleet_), anew);
    for (const std::string& id : jobs_) {
      for (int i = 0; i < kTries && slurm.PlaceOf(id) == Slurm::Place::kInQueue; ++i) {
        anew.Wait(std::chrono::seconds(1));
        if (anew.Asked() != 0) return;
      }
    }
  }

  // ---- What came of it --------------------------------------------------------------------------

  void NoteLost() {
    NoteLostAttempts(
        fleet_, "its job ended without a word: the node was lost, or the job was killed",
        [](const JournalRecord&) { return true; }, journal_);
  }

  // Where jobs have noted nothing, what they printed tells why.
  void TellWhatJobsSaid() {
    const std::string folder = SlurmRound(fleet_, round_);
    for (const std::string& name : NamesIn(folder)) {
      if (!name.ends_with(".log")) continue;
      const std::string said = LastLineOf(folder + "/" + name);
      if (said.empty()) continue;
      console_.Say("no job of the round told anything in the journals; " + Quoted(name) +
                   " says: " + said);
      return;
    }
    console_.Say("no job of the round told anything; see 'squeue', 'sinfo' and " + Quoted(folder));
  }

  const SlurmRunRequest& request_;
  const std::string& fleet_;
  FleetPlan plan_;
  FolderLock lock_;
  Console& console_;
  FleetProgress progress_{fleet_, plan_, "node", console_};
  StopSignals signals_;
  Slurm slurm_;
  Journal journal_;
  std::vector<std::string> words_;
  std::set<std::string> nodes_;
  uint64_t maxArraySize_ = 1;
  uint64_t round_ = 0;
  std::vector<std::string> jobs_;  // arrays that are not known to be over
  std::string after_;
  bool isSilent_ = false;
};

}  // namespace

ExitStatus RunFleetBySlurm(const SlurmRunRequest& request, Console& console) {
  return SlurmRun(request, console).Run();
}

bool WasOnSlurm(const std::string& fleet) { return LastRound(fleet) > 0; }

std::vector<ArrayOfChunks> ArraysOf(const FleetState& state, const std::vector<uint64_t>& chunks,
                                    const std::set<std::string>& nodes) {
  std::map<std::set<std::string>, std::vector<uint64_t>> byNodes;
  for (const uint64_t chunk : chunks) {
    std::set<std::string> without;
    // Boards of another engine are no nodes.
    for (const std::set<std::string>& names : {state.chunks.at(chunk).failed, NodesAside(state)}) {
      std::set_intersection(names.begin(), names.end(), nodes.begin(), nodes.end(),
                            std::inserter(without, without.begin()));
    }
    if (without.size() < nodes.size()) byNodes[without].push_back(chunk);
  }
  std::vector<ArrayOfChunks> arrays;
  for (const auto& [without, some] : byNodes) {
    arrays.push_back({.chunks = some, .without = without});
  }
  return arrays;
}

std::vector<std::string> ArrayWords(const std::string& folder, uint64_t array, uint64_t tasks,
                                    const std::set<std::string>& without,
                                    const std::vector<std::string>& more) {
  std::vector<std::string> words{"--array=0-" + std::to_string(tasks - 1),
                                 "--job-name=vorn-fleet",
                                 "--chdir=" + folder,
                                 OutputWord(folder, std::to_string(array) + ".%a.log"),
                                 "--open-mode=append",
                                 "--requeue",
                                 std::string("--signal=B:HUP@") + kEndInOrder};
  // The last --exclude wins.
  constexpr std::string_view kExclude = "--exclude=";
  std::vector<std::string> excluded(without.begin(), without.end());
  for (const std::string& word : more) {
    if (word.starts_with(kExclude)) {
      excluded.push_back(word.substr(kExclude.size()));
    } else {
      words.push_back(word);
    }
  }
  if (!excluded.empty()) words.push_back(std::string(kExclude) + TextOf(excluded, ","));
  return words;
}

}  // namespace vorn::kit
