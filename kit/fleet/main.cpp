// vorn-fleet: spreads a list over many boards, and puts together what came of it.
#include <algorithm>
#include <array>
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/file_place.h"
#include "kit/common/own_command.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/fleet/fleet_run.h"
#include "kit/fleet/make_plan.h"
#include "kit/fleet/merge.h"
#include "kit/fleet/round.h"
#include "kit/fleet/slurm_engine.h"
#include "kit/fleet/slurm_task.h"
#include "kit/fleet/status.h"
#include "kit/launch/console.h"
#include "kit/launch/launch_options.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostCrossCheck = 1000;

constexpr std::string_view kForms[] = {
    "plan -m MODEL -j CONFIG -i LIST -o FLEET [OPTION...]",
    "run FLEET --boards FILE",
    "run FLEET --on slurm [--partition NAME] [--time LIMIT] [--no-wait] [OPTION...]",
    "resume FLEET [--boards FILE | --on slurm] [--again]",
    "status FLEET [--watch] [--json]",
    "merge FLEET --run RUN [--json]",
};

constexpr Option kOptions[] = {
    kModelOption,
    {"config", 'j', "FILE", "The runtime's JSON configuration. A board may have another one."},
    kListOption,
    {"output", 'o', "FLEET", "The folder of the plan and of all that comes of it. It is made."},
    {"chunk", 0, "N",
     "Inferences that a board gets at a time. Without it some are run here, and a chunk is as long "
     "as it has to be for a board to spend 95 % of its time on inferences."},
    {"cross-check", 0, "N",
     "Inferences that every board runs, so that one that gives other outputs is found; 5 without "
     "it."},
    kBatchOption,
    kTotalTOption,
    kThresholdsOption,
    kProfileOption,
    {"sample-timeout", 0, "SECONDS", "End a process that takes longer for one inference."},
    kNoTextOption,
    kArraysOption,
    kNoTraceOption,
    {"model-json", 0, "FILE",
     "What vorn inspect --json says of the model, where no libvorn.so here can load it."},
    {"boards", 0, "FILE",
     "The boards, as docs/fleet.md tells. With resume those of before without it."},
    {"again", 0, "", "Try chunks again that were put aside."},
    {"on", 0, "ENGINE",
     "What runs it: ssh, on boards, or slurm, on nodes that all see FLEET, the files of the plan "
     "and this program. With resume that of before without it."},
    {"partition", 0, "NAME", "Of Slurm, as sbatch takes it."},
    {"gres", 0, "LIST", "The same."},
    {"constraint", 0, "LIST", "The same."},
    {"time", 0, "LIMIT",
     "The same: the time of a job, which has to be enough for some chunks. A minute or two before "
     "its end the job ends in order, and is queued again."},
    {"sbatch", 0, "WORD", "Any other word for sbatch, as --sbatch=--account=NAME.", true},
    {"no-wait", 0, "",
     "Hand all to Slurm and end; a job that Slurm starts behind the others goes on."},
    {"run", 0, "RUN",
     "The run directory of the whole. It is made, and has to be empty or a merge of this fleet "
     "that has holes."},
    {"watch", 0, "",
     "Show it until nothing runs: on a terminal in its place, elsewhere a line whenever it has "
     "changed."},
    {"json", 0, "", "Print the status as one line of JSON; of a merge run.json at its end."},
    {"place", 0, "N", "Of ticket, which GNU parallel calls: the slot's place.", false, true},
    {"sockets", 0, "FOLDER", "Of ticket: where connections are kept.", false, true},
    {"round", 0, "N", "Of task, which Slurm starts: the round.", false, true},
    {"array", 0, "N", "The same: which array of it.", false, true},
    {"tasks", 0, "N", "The same: how many tasks the array has.", false, true},
    {"after", 0, "N", "Of resume, as Slurm starts it: the round that is over.", false, true},
    {"quiet", 'q', "", "Say nothing on standard error but why it could not go on."},
};

constexpr std::string_view kPlanOptions[] = {
    "model",          "config",  "list",    "output",     "chunk",
    "cross-check",    "batch",   "total-t", "thresholds", "profile",
    "sample-timeout", "no-text", "npy",     "no-trace",   "model-json"};
constexpr std::string_view kRunOptions[] = {"boards",     "on",   "partition", "gres",
                                            "constraint", "time", "sbatch",    "no-wait"};
constexpr std::string_view kResumeOptions[] = {"boards",  "again",      "on",   "partition",
                                               "gres",    "constraint", "time", "sbatch",
                                               "no-wait", "after"};
constexpr std::string_view kStatusOptions[] = {"watch", "json"};
constexpr std::string_view kMergeOptions[] = {"run", "json"};
constexpr std::string_view kTicketOptions[] = {"place", "sockets"};
constexpr std::string_view kTaskOptions[] = {"round", "array", "tasks"};

ExitStatus PlanFleet(const Arguments& arguments);
ExitStatus RunFleet(const Arguments& arguments);
ExitStatus ResumeFleet(const Arguments& arguments);
ExitStatus TellStatus(const Arguments& arguments);
ExitStatus MergeAttempts(const Arguments& arguments);
ExitStatus TakeTicket(const Arguments& arguments);
ExitStatus RunTask(const Arguments& arguments);

constexpr VerbPart kParts[] = {
    {"plan",
     "Looks at model, configuration, list and every file, cuts the list into chunks,\n"
     "and writes into FLEET what every board is held to. No board is touched.",
     kPlanOptions, PlanFleet},
    {"run",
     "Hands the chunks out to boards, or to the nodes of a cluster, and fetches what\n"
     "came of them. Where it was stopped, or left something undone, resume goes on.",
     kRunOptions, RunFleet},
    {"resume", "Looks at what is there, and does what is missing.", kResumeOptions, ResumeFleet},
    {"status", "Tells from the journals alone how far it is, on any machine that sees FLEET.",
     kStatusOptions, TellStatus},
    {"merge",
     "Puts the attempts together into one run directory, as if one machine had run\n"
     "the list. Ends with 6 where outputs differ that should not.",
     kMergeOptions, MergeAttempts},
    {"ticket", "Is for GNU parallel to call.", kTicketOptions, TakeTicket, true},
    {"task", "Is for Slurm to start.", kTaskOptions, RunTask, true},
};

constexpr Verb kFleet{
    .name = "fleet",
    .summary = "one list over many boards",
    .forms = kForms,
    .about =
        "plan looks at model, configuration, list and every file as launch does, and cuts the\n"
        "list into chunks. run has GNU parallel hand them out to boards that are reached by ssh,\n"
        "each by its hashes, and runs vorn launch there, or has Slurm run it on nodes that see\n"
        "all files. A board that fails again and again is put aside, and so is a chunk that\n"
        "fails on two boards. resume looks at what is there, and does what is missing.\n"
        "\n"
        "status tells from the journals alone how far it is, on any machine that sees FLEET.\n"
        "merge puts the attempts together into one run directory, as if one machine had run the\n"
        "list: every inference once, made of the planned inputs, with outputs that verify. What\n"
        "is missing is said by lines of the list; so is what was not the same twice, and which\n"
        "board disagrees with the others. RUN/boards.json tells of each board.\n"
        "\n"
        "Ends with 0: all is there; 2, 3, 4: a fault of options, inputs, model; 5: of the\n"
        "runtime; 7: a limit; 8: some inferences are missing; 6: outputs of a merge differ.",
    .options = kOptions,
    .example =
        "build/release/vorn fleet plan -m examples/digits/digits.onnx -i examples/digits/list.txt "
        "-j examples/digits/host.json --chunk 50 -o build/digits.fleet",
    .mostOperands = 2,
    .parts = kParts,
};

// ---- What each of them takes --------------------------------------------------------------------

std::string FleetOf(const Arguments& arguments) {
  if (arguments.Operands().size() != 2 || arguments.Operands()[1].empty()) {
    throw Fault(ExitStatus::kUsage, "'vorn fleet " + arguments.Operands()[0] +
                                        "' needs the folder of a fleet behind it; 'vorn fleet "
                                        "plan -o FLEET' makes one");
  }
  std::string fleet = Absolute(arguments.Operands()[1]);
  while (fleet.size() > 1 && fleet.back() == '/') fleet.pop_back();
  return fleet;
}

// ---- Each of them -------------------------------------------------------------------------------

ExitStatus PlanFleet(const Arguments& arguments) {
  if (arguments.Operands().size() != 1) {
    throw Fault(ExitStatus::kUsage,
                "'vorn fleet plan' takes nothing but options; the folder of "
                "the fleet is named with -o");
  }
  FleetPlanRequest request;
  LaunchRequest& launch = request.launch;
  TakeNeededFiles(arguments, "output", launch);
  TakeLaunchOptions(arguments, launch);
  launch.program = OwnFolder() + "/vorn-run";
  launch.runOption = "-o";
  launch.command = OwnCommand("fleet");
  launch.version = VORN_VERSION;
  request.chunk = NumberOf(arguments, "chunk");
  request.crossCheck = arguments.GetNumber("cross-check", request.crossCheck, 0, kMostCrossCheck);
  if (!request.chunk && !launch.isTraced) {
    throw Fault(ExitStatus::kUsage,
                "without the layer nothing tells how long a chunk has to be; give --chunk N, or "
                "leave out --no-trace");
  }
  Console console(arguments.Has("quiet"), "fleet");
  const FleetPlan plan = MakeFleetPlan(request, console);
  console.Say(Counted(plan.inferences, "inference") + " in " +
              Counted(plan.chunks.size(), "chunk") + " of " +
              std::to_string(plan.chunks.front().inferences) + ", and " +
              std::to_string(plan.crossCheck.size()) + " for every board; run them with " +
              QuotedCommand({"vorn", "fleet", "run", launch.run, "--boards", "FILE"}));
  return ExitStatus::kDone;
}

// ---- Slurm --------------------------------------------------------------------------------------

constexpr std::string_view kOfSlurm[] = {"partition", "gres", "constraint", "time"};

bool IsOnSlurm(const Arguments& arguments, const std::string& otherwise) {
  const std::string engine = arguments.Get("on").value_or(otherwise);
  if (engine != "ssh" && engine != "slurm") {
    throw Fault(ExitStatus::kUsage, "--on is " + Quoted(engine) + ", and takes ssh or slurm");
  }
  const bool isSlurm = engine == "slurm";
  if (isSlurm && arguments.Has("boards")) {
    throw Fault(ExitStatus::kUsage, "--boards is for ssh; Slurm knows its nodes");
  }
  for (const std::string_view name :
       {"partition", "gres", "constraint", "time", "sbatch", "no-wait", "after"}) {
    if (isSlurm || !arguments.Has(name)) continue;
    throw Fault(ExitStatus::kUsage, "--" + std::string(name) + " is for --on slurm");
  }
  return isSlurm;
}

SlurmRunRequest SlurmRequestOf(const Arguments& arguments) {
  SlurmRunRequest request;
  request.fleet = FleetOf(arguments);
  for (const std::string_view name : kOfSlurm) {
    if (const auto value = arguments.Get(name)) {
      request.words.push_back("--" + std::string(name) + "=" + *value);
    }
  }
  for (std::string& word : arguments.GetAll("sbatch")) request.words.push_back(std::move(word));
  request.isWaiting = !arguments.Has("no-wait");
  request.isAgain = arguments.Has("again");
  request.after = NumberOf(arguments, "after");
  return request;
}

ExitStatus RunTask(const Arguments& arguments) {
  return RunSlurmTask({.fleet = FleetOf(arguments),
                       .round = arguments.GetNumber("round", 0, 1, kMostOptionNumber),
                       .array = arguments.GetNumber("array", 0, 0, kMostOptionNumber),
                       .tasks = arguments.GetNumber("tasks", 1, 1, kMostOptionNumber)});
}

// ---- Runs ---------------------------------------------------------------------------------------

ExitStatus RunFleet(const Arguments& arguments) {
  if (IsOnSlurm(arguments, "ssh")) {
    Console console(arguments.Has("quiet"), "fleet");
    return RunFleetBySlurm(SlurmRequestOf(arguments), console);
  }
  Console console(arguments.Has("quiet"), "fleet");
  return RunFleetBySsh({.fleet = FleetOf(arguments),
                        .named = arguments.Operands()[1],
                        .boards = arguments.Need("boards"),
                        .isResumed = false,
                        .isAgain = false},
                       console);
}

ExitStatus ResumeFleet(const Arguments& arguments) {
  const std::string fleet = FleetOf(arguments);
  const bool wasOnSlurm = !arguments.Has("boards") && WasOnSlurm(fleet);
  if (IsOnSlurm(arguments, wasOnSlurm ? "slurm" : "ssh")) {
    SlurmRunRequest request = SlurmRequestOf(arguments);
    request.isResumed = true;
    Console console(arguments.Has("quiet"), "fleet");
    return RunFleetBySlurm(request, console);
  }
  Console console(arguments.Has("quiet"), "fleet");
  return RunFleetBySsh({.fleet = FleetOf(arguments),
                        .named = arguments.Operands()[1],
                        .boards = arguments.Get("boards").value_or(""),
                        .isResumed = true,
                        .isAgain = arguments.Has("again")},
                       console);
}

ExitStatus TellStatus(const Arguments& arguments) {
  return ShowStatus({.fleet = FleetOf(arguments),
                     .isWatched = arguments.Has("watch"),
                     .isJson = arguments.Has("json")});
}

ExitStatus MergeAttempts(const Arguments& arguments) {
  MergeRequest request{.fleet = FleetOf(arguments),
                       .run = arguments.Need("run"),
                       .command = OwnCommand("fleet"),
                       .version = VORN_VERSION};
  if (request.run.empty()) throw Fault(ExitStatus::kUsage, "--run names nothing");
  while (request.run.size() > 1 && request.run.back() == '/') request.run.pop_back();
  Console console(arguments.Has("quiet"), "fleet");
  const ExitStatus status = MergeFleet(request, console);
  if (arguments.Has("json")) {
    const std::string facts = ToJson(ReadRun(request.run));
    std::fwrite(facts.data(), 1, facts.size(), stdout);
  }
  return status;
}

ExitStatus TakeTicket(const Arguments& arguments) {
  return RunTicket({.fleet = FleetOf(arguments),
                    .place = arguments.GetNumber("place", 1, 1, kMostOptionNumber),
                    .sockets = arguments.Need("sockets")});
}

ExitStatus Run(const Arguments& arguments) { return RunPart(kFleet, arguments); }

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kFleet, argc, argv, vorn::kit::Run);
}
