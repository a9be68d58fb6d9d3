// vorn-launch: runs vorn-run over a list into a run directory.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/common/folder_names.h"
#include "kit/common/own_command.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/launch/launch.h"
#include "kit/launch/launch_options.h"
#include "kit/launch/lifeline.h"
#include "kit/launch/plan.h"
#include "kit/launch/run_folder.h"
#include "kit/launch/turns.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostRunBytes = 64 << 20;

constexpr std::string_view kForms[] = {
    "-m MODEL -j CONFIG -i LIST --run RUN [OPTION...]",
};

constexpr Option kOptions[] = {
    kModelOption,
    {"config", 'j', "FILE", "The runtime's JSON configuration."},
    kListOption,
    {"run", 0, "RUN",
     "The run directory. It is made, and has to be empty unless --resume is given."},
    kBatchOption,
    kTotalTOption,
    kThresholdsOption,
    kProfileOption,
    {"chunk", 0, "N",
     "Run N inferences a process. One that ends its process is put aside and named, and the rest "
     "of "
     "its chunk goes on."},
    {"resume", 0, "",
     "Go on with the run in RUN: what was recorded and verifies by size and hash stays. Of a "
     "process "
     "that was killed with its launch counts what it said that it dumped, where that is whole."},
    {"timeout", 0, "SECONDS",
     "End the run after that time, in which --resume looks at what is there, too."},
    {"sample-timeout", 0, "SECONDS",
     "End a process that takes longer for one inference, from its first file on. Its start and the "
     "loading of the model are not in it; --timeout ends them, too."},
    {"lifeline", 0, "SECONDS",
     "End the run in order, as Ctrl-C does, when standard input comes to its end or brings nothing "
     "for that long. What comes is thrown away. It is for a run over ssh, which hears of a lost "
     "connection by nothing else: the other side writes a byte now and then. On standard output "
     "it reads a line when the last process has ended well: the device is free while the dumps are "
     "looked at."},
    kNoTextOption,
    kArraysOption,
    kNoTraceOption,
    {"program", 0, "FILE",
     "The vorn-run to run, or a script that does. Without it the one beside this program."},
    {"model-json", 0, "FILE",
     "What vorn inspect --json says of the model. Without it the model is loaded once, and what it "
     "told is kept in ~/.cache/vorn."},
    {"interleave", 0, "",
     "Run the list twice, as A and as B, by turns: a chunk of A and the same of B, then one of B "
     "and "
     "of A, of 20 inferences without --chunk. RUN/A and RUN/B are the run directories, and vorn "
     "timing RUN compares them by pairs."},
    {"b-model", 0, "FILE", "The model of B, where it is another."},
    {"b-config", 0, "FILE", "The configuration of B, where it is another."},
    {"b-program", 0, "FILE",
     "The program of B, where it is another: a script may name another runtime."},
    {"b-model-json", 0, "FILE", "As --model-json, of B's model."},
    {"dry-run", 0, "", "Check everything, and run nothing."},
    {"anyway", 0, "",
     "Run although the checks find faults, or --resume finds another program, and say them."},
    {"json", 0, "",
     "Print run.json on standard output at the end; with --interleave an array of both."},
    {"quiet", 'q', "", "Say nothing on standard error but why it could not run."},
};

constexpr Verb kLaunch{
    .name = "launch",
    .summary = "a list run over a model, checked before and behind, into a run directory",
    .forms = kForms,
    .about =
        "Checks model, configuration, list, every file's size and the room on the disk, and says\n"
        "all faults at once; of more than 100 the first, and how many more there are. Runs\n"
        "vorn-run as it is, with the trace layer in it. Then looks at every dump: whether it is\n"
        "there, of the right size, finite, and not the one before.\n"
        "\n"
        "RUN holds run.json, model.json, samples.jsonl, times.jsonl, machine.jsonl, log.txt,\n"
        "errors.txt and dumps/INFERENCE/; docs/schema tells their members. Of a run in one piece,\n"
        "and of a chunk that failed, there is trace.vtrace. With --interleave RUN holds two such\n"
        "folders, A and B, and times.jsonl, which has the times of both.\n"
        "VORN_LOG=1 is set for the program where VORN_LOG is not set.\n"
        "\n"
        "Ends with 0: all is there; 2, 3, 4: a fault of options, inputs, model; 5: of the\n"
        "runtime, or a signal ended the program; 7: a limit; 8: some inferences are missing.",
    .options = kOptions,
    .example =
        "build/release/vorn launch -m examples/digits/digits.onnx -i examples/digits/list.txt "
        "-j examples/digits/host.json --run build/digits.run",
};

// Before any file is opened in the place of what is closed.
void CheckLifeline() {
  const std::string why = WhyNoLifeline(STDIN_FILENO);
  if (why.empty()) return;
  throw Fault(ExitStatus::kUsage, "--lifeline: " + why +
                                      "; leave it out, or let a program write to a pipe now and "
                                      "then");
}

LaunchRequest RequestOf(const Arguments& arguments) {
  LaunchRequest request;
  (void)arguments.Need("model");  // is said first
  if (!arguments.Has("config")) {
    throw Fault(ExitStatus::kUsage,
                "-j FILE is missing, without which vorn-run does not run; a file that holds {} is "
                "an empty configuration");
  }
  TakeNeededFiles(arguments, "run", request);
  TakeLaunchOptions(arguments, request);
  request.program = arguments.Get("program").value_or(OwnFolder() + "/vorn-run");
  request.chunk = NumberOf(arguments, "chunk");
  request.limit = SecondsOf(arguments, "timeout");
  request.lifeline = SecondsOf(arguments, "lifeline");
  if (request.lifeline) CheckLifeline();
  request.isResumed = arguments.Has("resume");
  request.isAnyway = arguments.Has("anyway");
  request.command = OwnCommand("launch");
  request.version = VORN_VERSION;
  return request;
}

void SayFindings(const LaunchRequest& request, const Findings& findings, Console& console) {
  const ExitStatus status = findings.Status();
  const std::string text = findings.Text("vorn launch");
  if (status != ExitStatus::kDone && !request.isAnyway) throw Fault(status, text);
  if (!findings.IsEmpty()) console.Say(text);
}

// What is A's is B's where nothing else is said of it.
std::array<LaunchRequest, 2> RequestsOf(const Arguments& arguments) {
  constexpr uint64_t kTurn = 20;
  LaunchRequest one = RequestOf(arguments);
  if (!one.chunk) one.chunk = kTurn;
  one.runsOfDisk = 2;
  LaunchRequest other = one;
  other.model = arguments.Get("b-model").value_or(one.model);
  other.config = arguments.Get("b-config").value_or(one.config);
  other.program = arguments.Get("b-program").value_or(one.program);
  if (arguments.Has("b-model") || arguments.Has("b-model-json")) {
    other.modelJson = arguments.Get("b-model-json");
  }
  one.run += std::string("/") + kTurnFolders[0];
  other.run += std::string("/") + kTurnFolders[1];
  one.series = kTurnFolders[0];
  other.series = kTurnFolders[1];
  return {std::move(one), std::move(other)};
}

// The folder around both runs holds nothing else but their times.
void CheckFolderOfTurns(const std::string& run, bool isResumed) {
  struct stat other {};
  if (lstat((run + "/" + kRunFile).c_str(), &other) == 0) {
    throw Fault(ExitStatus::kUsage,
                Quoted(run) + " holds a run that took no turns; name another with --run");
  }
  for (const std::string& name : NamesIn(run)) {
    const bool isTurn = name == kTurnFolders[0] || name == kTurnFolders[1];
    if (isResumed && isTurn) continue;
    struct stat about {};
    const bool isFile = lstat((run + "/" + name).c_str(), &about) == 0 && S_ISREG(about.st_mode);
    const bool isOfTimes = name.starts_with(kTimesFile);
    if (isResumed && isOfTimes && isFile) continue;
    if (!isResumed && (isTurn || isOfTimes)) {
      throw Fault(ExitStatus::kUsage, Quoted(run) +
                                          " is not empty; name another with --run, or go "
                                          "on with the runs in it by --resume");
    }
    throw Fault(ExitStatus::kUsage, Quoted(run) + " holds " + Quoted(name) +
                                        ", which is not of runs that take turns; name another "
                                        "with --run");
  }
}

std::string RecordOf(const std::string& run) {
  return ReadWholeFile(run + "/" + kRunFile, "the record of the run", ExitStatus::kOwnFault,
                       kMostRunBytes);
}

void Print(const std::string& text) { std::fwrite(text.data(), 1, text.size(), stdout); }

void CheckAnyway(const LaunchRequest& request, const Plan& plan) {
  if (plan.isModelKnown) return;
  if (request.chunk || request.isResumed) {
    throw Fault(ExitStatus::kUsage,
                "--chunk and --resume need the model's description, which there is not; see above");
  }
}

ExitStatus RunInTurns(const Arguments& arguments) {
  const std::array<LaunchRequest, 2> requests = RequestsOf(arguments);
  const std::string run = arguments.Need("run");
  CheckFolderOfTurns(run, requests[0].isResumed);
  Console console(arguments.Has("quiet"));
  std::array<Plan, 2> plans{MakePlan(requests[0]), MakePlan(requests[1])};
  Findings findings = plans[0].findings;
  findings.AddNew(plans[1].findings, "B: ");  // what is wrong with both is told once
  SayFindings(requests[0], findings, console);
  for (size_t i = 0; i < plans.size(); ++i) CheckAnyway(requests[i], plans[i]);
  if (plans[0].inferences != plans[1].inferences) {
    throw Fault(ExitStatus::kUsage, "the list is " + Counted(plans[0].inferences, "inference") +
                                        " for A and " + std::to_string(plans[1].inferences) +
                                        " for B; --interleave needs models with as many inputs");
  }
  if (arguments.Has("dry-run")) {
    const ExitStatus status = findings.Status();
    if (status == ExitStatus::kDone) {
      console.Say("nothing speaks against " + Counted(plans[0].inferences, "inference") +
                  " of A and of B");
    }
    return status;
  }
  const ExitStatus status = LaunchInTurns(requests, std::move(plans), console);
  MergeTimes(run);
  if (arguments.Has("json")) {
    Print("[\n" + RecordOf(requests[0].run) + ",\n" + RecordOf(requests[1].run) + "]\n");
  }
  return status;
}

ExitStatus RunLaunch(const Arguments& arguments) {
  if (arguments.Has("interleave")) return RunInTurns(arguments);
  for (const char* name : {"b-model", "b-config", "b-program", "b-model-json"}) {
    if (!arguments.Has(name)) continue;
    throw Fault(ExitStatus::kUsage, "--" + std::string(name) + " is of B, which --interleave runs");
  }
  const LaunchRequest request = RequestOf(arguments);
  Console console(arguments.Has("quiet"));
  Plan plan = MakePlan(request);
  SayFindings(request, plan.findings, console);
  if (arguments.Has("dry-run")) {
    const ExitStatus status = plan.findings.Status();
    if (status == ExitStatus::kDone) {
      console.Say("nothing speaks against " + Counted(plan.inferences, "inference"));
    }
    return status;
  }
  CheckAnyway(request, plan);
  const ExitStatus status = Launch(request, std::move(plan), console);
  if (arguments.Has("json")) Print(RecordOf(request.run));
  return status;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kLaunch, argc, argv, vorn::kit::RunLaunch);
}
