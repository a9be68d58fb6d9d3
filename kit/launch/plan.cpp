// Each step that fails leaves a finding, and the steps that do not need it go on: whoever starts a
// run hears of everything at once.
#include "kit/launch/plan.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "kit/common/printable.h"
#include "kit/launch/execution_times.h"
#include "kit/launch/libraries.h"
#include "kit/runtime/model_source.h"
#include "kit/trace/under_layer.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostThresholdBytes = 1 << 20;
constexpr uint64_t kProfiledExecutions = 21;
constexpr uint64_t kTracedCallBytes = 128;
constexpr uint64_t kSampleLineBytes = 1024;

std::string FolderAbove(const std::string& path) {
  const size_t slash = path.rfind('/', path.find_last_not_of('/'));
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::vector<std::string> SplitAtCommas(const std::string& text) {
  std::vector<std::string> pieces;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find(',', start), text.size());
    pieces.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return pieces;
}

class Planner {
 public:
  explicit Planner(const LaunchRequest& request) : request_(request) {}

  Plan Make() {
    Try([&] { FindLibraries(); });
    if (request_.isTraced) Try([&] { CheckLayer(); });
    Try([&] {
      plan_.model.model = IdentifyFile(request_.model, "the model", ExitStatus::kModel);
      if (plan_.model.model.sizeBytes == uint64_t{0}) {
        throw Fault(ExitStatus::kModel, "the model '" + Printable(request_.model) + "' is empty");
      }
    });
    Try([&] {
      plan_.model.configuration =
          IdentifyFile(request_.config, "the configuration", ExitStatus::kModel);
    });
    Try([&] { ReadList(); });
    Try([&] { Describe(); });
    CheckRunFolder();
    if (plan_.isModelKnown && plan_.list) {
      Try([&] {
        plan_.findings.Add(CheckList(ListRequest(), plan_.model, plan_.inputs, LookAtFile));
      });
      CheckDisk();
    } else if (plan_.list) {
      Try([&] { plan_.findings.Add(CheckFilesAlone(request_.list, plan_.inputs, LookAtFile)); });
    }
    return std::move(plan_);
  }

 private:
  template <typename Step>
  void Try(const Step& step) {
    try {
      step();
    } catch (const Fault& fault) {
      Find(fault.Status(), fault.what());
    }
  }

  void FindLibraries() {
    const std::optional<LinkedLibraries> libraries = AskLoader(request_.program);
    plan_.program = IdentifyFile(request_.program, "the program", ExitStatus::kRuntime);
    if (!libraries) {
      Find(ExitStatus::kDone,
           "the program " + Quoted(request_.program) +
               " is a script, or names no loader: its libvorn.so was not looked at" +
               (request_.modelJson ? ""
                                   : ", nor the sizes of the inputs; --model-json has these "
                                     "checked, and --chunk and --resume need it"));
      return;
    }
    plan_.model.runtime = IdentifyFile(FindRuntime(request_.program, *libraries), "the runtime",
                                       ExitStatus::kRuntime);
    for (const std::string& library : libraries->found) {
      plan_.libraries.push_back({.path = library, .buildId = BuildIdOf(library)});
    }
  }

  void CheckLayer() const {
    const std::string reason = WhyNoTrace(
        {.command = {request_.program}, .layer = FindTraceLayer(), .output = {}, .calls = 1});
    if (!reason.empty()) throw Fault(ExitStatus::kUsage, "the trace layer: " + reason);
  }

  void ReadList() {
    plan_.inputs = InputList::OfFile(request_.list);
    plan_.list = plan_.inputs.File();
  }

  // Without one of the files there is nothing to describe, and that was said already.
  void Describe() {
    const bool areThere = (plan_.model.runtime || request_.modelJson) && plan_.model.model.xxh3 &&
                          plan_.model.configuration;
    if (!areThere) return;
    TakeModel(plan_, request_,
              DescribeFrom({.model = plan_.model.model,
                            .configuration = *plan_.model.configuration,
                            .runtime = plan_.model.runtime,
                            .file = request_.modelJson}));
  }

  CheckRequest ListRequest() const {
    return {.listPath = request_.list,
            .batch = request_.batch.value_or(1),
            .totalT = request_.totalT,
            .thresholds = LookAtThresholds(request_.thresholds.value_or(""))};
  }

  // ---- Where it goes ----------------------------------------------------------------------------

  void CheckRunFolder() {
    if (request_.run.find('\n') != std::string::npos) {
      Find(ExitStatus::kUsage,
           request_.runOption + " '" + Printable(request_.run) + "' holds a line end");
    }
    existing_ = request_.run;
    while (access(existing_.c_str(), F_OK) != 0 && errno == ENOENT && existing_ != "/" &&
           existing_ != ".") {
      existing_ = FolderAbove(existing_);
    }
    struct stat about {};
    if (stat(existing_.c_str(), &about) != 0 || !S_ISDIR(about.st_mode)) {
      Find(ExitStatus::kUsage, request_.runOption + " '" + Printable(request_.run) +
                                   "' cannot be made: '" + Printable(existing_) + "' is no folder");
    } else if (access(existing_.c_str(), W_OK | X_OK) != 0) {
      Find(ExitStatus::kLimit, request_.runOption + " '" + Printable(request_.run) +
                                   "' cannot be written: " + SystemReason(errno));
    }
  }

  void CheckDisk() {
    struct statvfs disk {};
    if (statvfs(existing_.c_str(), &disk) != 0) return;
    const uint64_t free = uint64_t{disk.f_bavail} * disk.f_frsize;
    const uint64_t atOnce = std::min(request_.chunk.value_or(plan_.inferences), plan_.inferences);
    const uint64_t batch = BatchOf(plan_, request_);
    const DumpSize kept = SizeOfDumps(plan_.model, batch, request_.isTextKept);
    const DumpSize whole = SizeOfDumps(plan_.model, batch, true);
    const uint64_t trace =
        request_.isTraced
            ? kTracedCallBytes * CallsOfRun(plan_.model.inputs.size(), plan_.model.outputs.size(),
                                            atOnce, ExecutionsEach(request_))
            : 0;
    // The numbers of a hostile model may be of any size.
    const auto runs = static_cast<double>(request_.runsOfDisk);
    const auto all = static_cast<double>(plan_.inferences);
    // Texts that are not kept go while others come: those of one inference are there at once, and
    // more where the disk is faster than the look at it.
    const auto sum = [&](uint64_t keptEach, uint64_t wholeEach) {
      return runs * (all * static_cast<double>(keptEach) +
                     static_cast<double>(std::min<uint64_t>(atOnce, 1)) *
                         static_cast<double>(wholeEach - keptEach) +
                     static_cast<double>(trace) + all * static_cast<double>(kSampleLineBytes));
    };
    // A file takes whole blocks, where the file system does not put small ones among its own facts.
    const uint64_t filesEach = 1 + plan_.model.outputs.size() * (1 + (request_.isTextKept ? 1 : 0) +
                                                                 (request_.areArrays ? 1 : 0));
    const double files =
        runs * static_cast<double>(plan_.inferences) * static_cast<double>(filesEach);
    const double least = sum(kept.leastBytes, whole.leastBytes);
    const double most =
        sum(kept.mostBytes, whole.mostBytes) + files * static_cast<double>(disk.f_frsize);
    if (disk.f_files != 0 && files > static_cast<double>(disk.f_favail)) {
      Find(ExitStatus::kLimit, "the disk of '" + Printable(existing_) + "' has room for " +
                                   Counted(disk.f_favail, "file") + ", and the run makes " +
                                   std::to_string(static_cast<uint64_t>(files)) +
                                   "; name another with " + request_.runOption);
    }
    const std::string text = "'" + Printable(existing_) + "' has " + SizeText(free) + " left";
    if (least > static_cast<double>(free)) {
      Find(ExitStatus::kLimit,
           text + ", and the run takes " + Rounded(least) + " at least; " + Advice());
    } else if (most > static_cast<double>(free)) {
      Find(ExitStatus::kDone, text + ", and the run may take " + Rounded(most) +
                                  ", by the values and by blocks that files do not fill; " +
                                  Advice());
    }
  }

  static std::string Rounded(double bytes) {
    constexpr double kMost = 9e18;
    return SizeText(static_cast<uint64_t>(std::min(bytes, kMost)));
  }

  std::string Advice() const {
    if (request_.isTextKept) return "--no-text keeps a fifth of it";
    return "name another disk with " + request_.runOption;
  }

  // Several steps read the list, and it is changed once.
  void Find(ExitStatus status, const std::string& message) {
    const Finding finding{.status = status, .message = message};
    const std::vector<Finding>& before = plan_.findings.First();
    if (std::find(before.begin(), before.end(), finding) != before.end()) return;
    plan_.findings.Add(finding);
  }

  const LaunchRequest& request_;
  Plan plan_;
  std::string existing_;  // the run directory, or the first folder above it that is there
};

}  // namespace

FileState LookAtFile(const std::string& path) {
  struct stat about {};
  if (stat(path.c_str(), &about) != 0) {
    return {.fault = errno == ENOENT ? "is not there" : "cannot be found: " + SystemReason(errno),
            .sizeBytes = 0};
  }
  if (S_ISDIR(about.st_mode)) return {.fault = "is a folder, and a file is needed", .sizeBytes = 0};
  if (!S_ISREG(about.st_mode)) return {.fault = "is no regular file", .sizeBytes = 0};
  if (access(path.c_str(), R_OK) != 0) {
    return {.fault = "cannot be read: " + SystemReason(errno), .sizeBytes = 0};
  }
  return {.fault = "", .sizeBytes = static_cast<uint64_t>(about.st_size)};
}

std::vector<ListedInput> Plan::InputsOf(uint64_t inference) const {
  std::vector<ListedInput> listed;
  for (uint64_t i = 0; i < perInference; ++i) {
    listed.push_back(inputs.Input(inference * perInference + i));
  }
  return listed;
}

std::vector<CheckRequest::Thresholds> LookAtThresholds(const std::string& files) {
  std::vector<CheckRequest::Thresholds> all;
  for (const std::string& path : SplitAtCommas(files)) {
    auto& thresholds = all.emplace_back();
    thresholds.path = path;
    thresholds.fault = LookAtFile(path).fault;
    if (!thresholds.fault.empty()) continue;
    const auto count = CountThresholds(
        ReadWholeFile(path, "the thresholds", ExitStatus::kInput, kMostThresholdBytes));
    if (!count) thresholds.fault = "hold something that is no number";
    thresholds.values = count.value_or(0);
  }
  return all;
}

Plan MakePlan(const LaunchRequest& request) { return Planner(request).Make(); }

void TakeModel(Plan& plan, const LaunchRequest& request, ModelDescription model) {
  // What a log tells has no files in it.
  if (!model.model.xxh3) model.model = plan.model.model;
  if (!model.configuration) model.configuration = plan.model.configuration;
  if (!model.runtime) model.runtime = plan.model.runtime;
  plan.model = std::move(model);
  plan.isModelKnown = true;
  plan.inputs = plan.inputs.SortedBy(NamedInputs(plan.model));
  plan.perInference = DataInputs(plan.model, SplitAtCommas(request.thresholds.value_or("")).size());
  plan.inferences = plan.perInference == 0 ? 0 : plan.inputs.Lines() / plan.perInference;
}

void HoldList(Plan& plan) {
  if (!plan.list) return;
  const std::string& path = plan.list->path;
  std::string bytes =
      ReadWholeFile(path, "the list", ExitStatus::kInput, std::numeric_limits<uint64_t>::max());
  if (Xxh3Of(bytes) != plan.list->xxh3) {
    throw Fault(ExitStatus::kInput,
                "the list " + Quoted(path) + " was changed while it was looked at; start again");
  }
  plan.inputs = plan.inputs.HeldIn(std::move(bytes));
}

bool AreNamesKept(const Plan& plan) {
  return plan.inputs.AreNamesUsed() && NamedInputs(plan.model).size() == plan.perInference;
}

uint64_t BatchOf(const Plan& plan, const LaunchRequest& request) {
  if (plan.model.netType == int32_t{VORN_NET_RECURRENT}) return 1;
  return static_cast<uint64_t>(std::max<int64_t>(request.batch.value_or(1), 1));
}

uint64_t ExecutionsEach(const LaunchRequest& request) {
  return request.isProfiled ? kProfiledExecutions : 1;
}

}  // namespace vorn::kit
