// A model, what its runtime answers out of turn, options and files, run from first to last on the
// scripted runtime in this process. Whatever the runtime does, the run has to end with a status
// that its lines explain, break no rule of memory and handles, and release what it was given.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "common/perf_info.h"
#include "fuzz/byte_source.h"
#include "fuzz/captured_stdout.h"
#include "fuzz/division_fault.h"
#include "fuzz/property.h"
#include "fuzz/scratch_folder.h"
#include "fuzz/targets.h"
#include "sample/prepare_paths.h"
#include "sample/run_sample.h"
#include "scripted/record.h"
#include "scripted/scripted.h"

namespace fuzz {
namespace {

namespace run = vorn::run;

constexpr size_t kMostFileBytes = 512;  // bounds the batch size that a file can ask for

struct Plan {
  std::string script;
  std::vector<std::string> inputFiles;
  std::vector<std::string> rpnFiles;
  std::string list;
  std::string image;
  bool hasOutputFolder = true;
  run::SampleOptions options;
};

// ---- The model ----------------------------------------------------------------------------------

struct Shape {
  std::string name;
  uint64_t rows = 1;
  uint64_t lastDim = 1;
  uint32_t type = 0;
  uint64_t stride = 0;
  uint64_t size = 0;
  std::string dims;

  [[nodiscard]] uint64_t Elem() const {
    static constexpr uint64_t kBytes[] = {4, 2, 1, 4, 1, 4, 2, 2, 8, 8, 8, 1};
    return type < 12 ? kBytes[type] : 4;
  }
  [[nodiscard]] uint64_t DenseBytes() const { return rows * lastDim * Elem(); }
  [[nodiscard]] std::string Line(const char* whose) const {
    return std::string(whose) + " name=" + scripted::Quote(name) + " dims=" + dims +
           " type=" + std::to_string(type) + " stride=" + std::to_string(stride) +
           " size=" + std::to_string(size) + "\n";
  }
};

// Sizes fit each other unless `Distort` follows.
void Lay(Shape& shape, uint64_t alignment) {
  shape.stride = (shape.lastDim * shape.Elem() + alignment - 1) / alignment * alignment;
  shape.size = shape.rows * shape.stride;
}

void Distort(ByteSource& source, Shape& shape) {
  switch (source.TakeBelow(6)) {
    case 0:
      shape.stride = source.TakeBelow(3) * 8;
      break;
    case 1:
      shape.size = source.Pick<uint64_t>({0, 1, 7, 100, 1 << 21, UINT64_MAX});
      break;
    case 2:
      shape.type = source.Pick<uint32_t>({12, 77, UINT32_MAX, 8, 1});
      break;
    case 3:
      shape.dims = source.Pick<std::string>({"", "0", "1,-1", "3 rank=0", "4 rank=200", "1,1,1,9"});
      break;
    case 4:
      shape.name = std::string(120 + source.TakeBelow(16), 'l');
      break;
    default:
      shape.size += source.TakeByte();
      break;
  }
}

Shape TakeShape(ByteSource& source) {
  Shape shape;
  shape.name = source.Pick<std::string>({"data", "in0", "in1", "a.b", "", "x/y", "a:b"});
  shape.rows = 1 + source.TakeBelow(6);
  shape.lastDim = 1 + source.TakeBelow(12);
  shape.type = source.Pick<uint32_t>({0, 1, 2, 3, 4, 5, 6, 7, 8, 11});
  shape.dims = "1," + std::to_string(shape.rows) + "," + std::to_string(shape.lastDim);
  Lay(shape, source.Pick<uint64_t>({1, 16, 32}));
  if (source.TakeRarely(16)) Distort(source, shape);
  return shape;
}

// An output's rows are counted by size and stride: kept to what a run gets through in no time.
Shape TakeOutput(ByteSource& source) {
  Shape shape = TakeShape(source);
  if (shape.size > 1024) shape.size = 1024;
  if (shape.stride != 0 && shape.stride < 8) shape.stride = 8;
  return shape;
}

Shape TakeRpnShape(ByteSource& source) {
  Shape shape;
  shape.name = "rpn";
  shape.rows = source.Pick<uint64_t>({1, 4, 4, 2});
  shape.lastDim = shape.rows == 1 ? 4 : 1 + source.TakeBelow(6);
  shape.dims = std::to_string(shape.rows) + "," + std::to_string(shape.lastDim);
  Lay(shape, 16);
  if (source.TakeRarely(16)) Distort(source, shape);
  return shape;
}

Shape Scratch(const char* name, uint64_t size) {
  Shape shape;
  shape.name = name;
  shape.dims = std::to_string(size);
  shape.type = 4;
  shape.stride = 16;
  shape.size = size;
  return shape;
}

// ---- Answers out of turn ------------------------------------------------------------------------

constexpr const char* kStatusOperations[] = {"vorn_init",
                                             "vorn_rt_set_device",
                                             "vorn_rt_set_op_wait_timeout",
                                             "vorn_rt_create_context",
                                             "vorn_rt_create_stream",
                                             "vorn_rt_get_run_mode",
                                             "vorn_rt_malloc",
                                             "vorn_mdl_load_from_mem",
                                             "vorn_ext_get_mdl_net_type",
                                             "vorn_mdl_get_desc",
                                             "vorn_mdl_get_input_dims",
                                             "vorn_mdl_get_output_dims",
                                             "vorn_mdl_add_dataset_buffer",
                                             "vorn_mdl_set_dynamic_batch_size",
                                             "vorn_mdl_set_total_t",
                                             "vorn_mdl_execute"};

// These may do their work and deny it. What hands something out may not: vorn.h says so.
constexpr const char* kReleases[] = {"vorn_finalize",
                                     "vorn_rt_reset_device",
                                     "vorn_rt_destroy_context",
                                     "vorn_rt_destroy_stream",
                                     "vorn_rt_free",
                                     "vorn_mdl_unload",
                                     "vorn_mdl_destroy_desc",
                                     "vorn_destroy_data_buffer",
                                     "vorn_mdl_destroy_dataset"};

constexpr const char* kNullOperations[] = {
    "vorn_mdl_create_desc",        "vorn_mdl_create_dataset",
    "vorn_create_data_buffer",     "vorn_mdl_get_output_name_by_index",
    "vorn_mdl_get_dataset_buffer", "vorn_get_data_buffer_addr"};

struct CountOperation {
  const char* name;
  std::initializer_list<const char*> values;
};

// No count without end, and no rows without end: a run on a runtime that claims them never ends.
const CountOperation kCountOperations[] = {
    {"vorn_mdl_get_num_inputs", {"0", "1", "2", "3", "5", "100", "-1"}},
    {"vorn_mdl_get_num_outputs", {"0", "1", "4"}},
    {"vorn_mdl_get_input_size_by_index", {"0", "1", "16", "4096", "-1", "0x7fffffffffffffff"}},
    {"vorn_mdl_get_output_size_by_index", {"0", "1", "16", "512"}},
    {"vorn_mdl_get_input_default_stride", {"0", "1", "8", "64", "-1", "0x80000000"}},
    {"vorn_mdl_get_output_default_stride", {"0", "64", "-1"}},
    {"vorn_mdl_get_input_data_type", {"0", "2", "8", "99"}},
    {"vorn_mdl_get_output_data_type", {"0", "2", "8", "99"}},
    {"vorn_data_type_size", {"0", "1", "8", "64", "-1"}},
    {"vorn_mdl_get_dataset_num_buffers", {"0", "1", "6"}},
    {"vorn_get_data_buffer_size", {"0", "1", "3"}},
};

std::string TakeCalls(ByteSource& source) {
  const uint64_t first = 1 + source.TakeBelow(12);
  switch (source.TakeBelow(4)) {
    case 0:
      return " always ";
    case 1:
      return " " + std::to_string(first) + "- ";
    default:
      return " " + std::to_string(first) + " ";
  }
}

template <size_t kCount>
std::string TakeOperation(ByteSource& source, const char* const (&operations)[kCount]) {
  return operations[source.TakeBelow(kCount)];
}

std::string TakeAnswer(ByteSource& source) {
  const uint64_t kind = source.TakeBelow(5);
  std::string operation;
  std::string value = "5";
  if (kind == 0) {
    operation = TakeOperation(source, kNullOperations);
    value = "null";
  } else if (kind == 1) {
    const auto& count = kCountOperations[source.TakeBelow(std::size(kCountOperations))];
    operation = count.name;
    value = source.Pick(count.values);
  } else if (kind == 2) {
    operation = TakeOperation(source, kReleases);
    if (source.TakeRarely(2)) value += " effect";
  } else {
    operation = TakeOperation(source, kStatusOperations);
  }
  return "answer " + operation + TakeCalls(source) + value + "\n";
}

std::string TakeSurprises(ByteSource& source) {
  std::string text;
  if (source.TakeRarely(16)) text += "run-mode 1\n";
  if (source.TakeRarely(16)) {
    const auto bits = source.Pick<std::string>({"0", "7", "8", "16", "64", "100000"});
    text += "bits " + std::to_string(source.TakeBelow(8)) + " " + bits + "\n";
  }
  const uint64_t answers = source.Pick<uint64_t>({0, 0, 1, 1, 2, 3});
  for (uint64_t i = 0; i < answers; ++i) text += TakeAnswer(source);
  if (source.TakeRarely(3)) text += "fail " + std::to_string(1 + source.TakeByte()) + " 9\n";
  return text;
}

// ---- Files and options --------------------------------------------------------------------------

std::string TakeInputFile(ByteSource& source, const Shape& shape, int32_t batch) {
  uint64_t size = shape.DenseBytes() * static_cast<uint64_t>(std::clamp(batch, 1, 8));
  const uint8_t kind = source.TakeByte() % 8;
  if (kind == 5) size = shape.DenseBytes() * source.TakeBelow(5);
  if (kind == 6) size = source.TakeByte();
  if (kind == 7) size = shape.size * source.TakeBelow(4);
  std::string bytes(std::min<uint64_t>(size, kMostFileBytes), '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i + 1);
  return bytes;
}

std::string TakeRpnFile(ByteSource& source, const Shape& shape) {
  if (source.TakeRarely(8)) return source.TakeText(32);
  uint64_t count = shape.rows * shape.lastDim;
  if (source.TakeRarely(8)) count = source.TakeBelow(26);
  std::string text;
  for (uint64_t i = 0; i < count; ++i) {
    text += (i == 0 ? "0." : " 0.") + std::to_string(i + 1);
  }
  return text;
}

std::string FileName(uint64_t index) { return "in" + std::to_string(index) + ".bin"; }

std::string TakeListLine(ByteSource& source, const std::vector<Shape>& inputs, uint64_t index,
                         unsigned style) {
  const std::string name = inputs[index].name;
  if (style == 1) return name + ":" + FileName(index);
  if (style == 2) return inputs[inputs.size() - 1 - index].name + ":" + FileName(index);
  if (style != 3) return FileName(index);
  switch (source.TakeBelow(6)) {
    case 0:
      return name + ":" + FileName(index);
    case 1:
      return source.Pick<std::string>({"missing.bin", ".", "in0.bin:", ":in0.bin", "x:in0.bin"});
    case 2:
      return source.TakeText(10);
    default:
      return FileName(index);
  }
}

std::string TakeList(ByteSource& source, const std::vector<Shape>& inputs) {
  const unsigned style = source.TakeByte() % 4;
  const uint64_t lines =
      inputs.size() * source.Pick<uint64_t>({1, 2, 3, 0}) + (source.TakeRarely(8) ? 1 : 0);
  std::string text;
  for (uint64_t i = 0; i < lines && !inputs.empty(); ++i) {
    text += TakeListLine(source, inputs, i % inputs.size(), style) + "\n";
  }
  return text;
}

void TakeOptions(ByteSource& source, run::SampleOptions& options) {
  options.batchSize = source.Pick<int32_t>({1, 1, 1, 2, 3, 4, 0, -1, 1 << 20, INT32_MAX});
  options.nlpTotalT = source.Pick<int32_t>({-1, -1, 0, 5, INT32_MAX});
  options.profile = source.TakeRarely(32) ? 1 : 0;
}

Plan TakePlan(ByteSource& source) {
  Plan plan;
  TakeOptions(source, plan.options);
  plan.image = std::string(source.TakeRarely(32) ? 0 : 24, 'm');
  plan.hasOutputFolder = !source.TakeRarely(32);
  plan.script = "limit 1048576\nnet " + std::to_string(source.Pick<int>({0, 0, 1, 2, 2, 3})) + "\n";

  std::vector<Shape> inputs(source.Pick<size_t>({1, 1, 2, 3, 0}));
  for (Shape& input : inputs) {
    input = TakeShape(source);
    plan.script += input.Line("input");
    plan.inputFiles.push_back(TakeInputFile(source, input, plan.options.batchSize));
  }
  const uint64_t rpnInputs = source.Pick<uint64_t>({0, 0, 0, 1, 2});
  for (uint64_t i = 0; i < rpnInputs; ++i) {
    const Shape shape = TakeRpnShape(source);
    plan.script += shape.Line("input");
    plan.rpnFiles.push_back(TakeRpnFile(source, shape));
  }
  if (source.TakeRarely(16)) plan.rpnFiles.emplace_back("0.1 0.2 0.3 0.4");
  const uint64_t scratch = source.TakeRarely(16) ? source.TakeBelow(2) : 2;
  for (uint64_t i = 0; i < scratch; ++i) {
    plan.script += Scratch(i == 0 ? "task" : "work", 32 + 32 * i).Line("input");
  }
  const uint64_t outputs = source.TakeBelow(4);
  for (uint64_t i = 0; i < outputs; ++i) {
    plan.script += TakeOutput(source).Line("output");
    plan.script += "write " + std::to_string(i) + " counter " + std::to_string(i) + "\n";
  }
  plan.list = TakeList(source, inputs);
  plan.script += TakeSurprises(source);
  return plan;
}

// ---- The run ------------------------------------------------------------------------------------

// A file in memory that an environment variable names.
class MemoryFile {
 public:
  explicit MemoryFile(const char* variable) : file_(memfd_create(variable, MFD_CLOEXEC)) {
    setenv(variable, ("/proc/self/fd/" + std::to_string(file_)).c_str(), 1);
  }

  void Write(const std::string& bytes) const {
    if (ftruncate(file_, 0) != 0) std::abort();
    if (pwrite(file_, bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
      std::abort();
    }
  }

  [[nodiscard]] std::string Read() const {
    struct stat status {};
    if (fstat(file_, &status) != 0) std::abort();
    std::string bytes(static_cast<size_t>(status.st_size), '\0');
    if (pread(file_, bytes.data(), bytes.size(), 0) != status.st_size) std::abort();
    return bytes;
  }

 private:
  int file_;
};

enum class End { kSuccess, kFailure, kDivisionFault };

struct Outcome {
  End end = End::kSuccess;
  std::string output;
  std::vector<std::string> record;
};

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

void PlaceFiles(ScratchFolder& folder, Plan& plan) {
  folder.Write("model.om", plan.image);
  folder.Write("vorn.json", "{}");
  folder.Write("list.txt", plan.list);
  for (size_t i = 0; i < plan.inputFiles.size(); ++i) folder.Write(FileName(i), plan.inputFiles[i]);
  for (size_t i = 0; i < plan.rpnFiles.size(); ++i) {
    const std::string name = "rpn" + std::to_string(i) + ".txt";
    folder.Write(name, plan.rpnFiles[i]);
    plan.options.rpnData += (i == 0 ? "" : ",") + folder.Path() + "/" + name;
  }
  plan.options.modelPath = folder.Path() + "/model.om";
  plan.options.vornJsonPath = folder.Path() + "/vorn.json";
  plan.options.imagePath = folder.Path() + "/list.txt";
  plan.options.outputPath = folder.Path() + (plan.hasOutputFolder ? "" : "/nowhere");
}

End RunOnce(const run::SampleOptions& options) {
  run::g_perfInfo = run::PerfInfo{};
  run::ResolvedPaths paths;
  try {
    if (run::PreparePaths(options, paths) != 0) return End::kFailure;
    return run::RunSample(options, paths) == 0 ? End::kSuccess : End::kFailure;
  } catch (const DivisionFault&) {
    return End::kDivisionFault;
  }
}

Outcome Run(Plan& plan) {
  static ScratchFolder folder;
  static const MemoryFile script("VORN_SCRIPT");
  static const MemoryFile record("VORN_RECORD");
  PlaceFiles(folder, plan);
  script.Write(plan.script);
  record.Write("");
  Outcome outcome;
  outcome.end = RunOnce(plan.options);
  vorn_scripted_restart();
  outcome.output = TakeStdout();
  outcome.record = SplitLines(record.Read());
  for (int i = 0; !folder.Take(std::to_string(i)).empty(); ++i) continue;
  return outcome;
}

// ---- What has to hold ---------------------------------------------------------------------------

bool Has(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool StartsWithAny(std::string_view line, std::initializer_list<std::string_view> starts) {
  return std::ranges::any_of(starts, [line](auto start) { return line.starts_with(start); });
}

// What the script made the runtime do.
struct Surprises {
  bool failedRelease = false;  // releasing, or finding what is to be released, did not work
  bool lied = false;           // a count, a size, a type or an address that was not true
};

Surprises SurprisesIn(const std::vector<std::string>& record) {
  Surprises surprises;
  for (const std::string& line : record) {
    if (!line.ends_with(" [scripted]")) continue;
    surprises.failedRelease |=
        Has(line, "_destroy_") ||
        StartsWithAny(line, {"vorn_finalize(", "vorn_rt_reset_device(", "vorn_rt_free(",
                             "vorn_mdl_unload(", "vorn_get_data_buffer_addr(",
                             "vorn_mdl_get_dataset_buffer(", "vorn_mdl_get_dataset_num_buffers("});
    surprises.lied |= StartsWithAny(
        line, {"vorn_mdl_get_num_", "vorn_mdl_get_input_", "vorn_mdl_get_output_",
               "vorn_data_type_size(", "vorn_mdl_get_dataset_", "vorn_get_data_buffer_"});
  }
  return surprises;
}

// Breaking these has no excuse, whatever the runtime said.
bool IsAboutMemory(const std::string& violation) {
  for (const char* part : {"cannot be released", " is used", "a foreign address", "was written",
                           " lies behind ", " is no block"}) {
    if (Has(violation, part)) return true;
  }
  return false;
}

void CheckViolations(const Outcome& outcome, const Surprises& surprises) {
  for (const std::string& line : outcome.record) {
    if (!line.starts_with("violation: ")) continue;
    const bool isExcused = (surprises.lied || surprises.failedRelease) && !IsAboutMemory(line);
    Require(isExcused, line);
  }
}

void CheckReleases(const Outcome& outcome, const Surprises& surprises) {
  if (outcome.end == End::kDivisionFault || surprises.failedRelease || outcome.record.empty())
    return;
  const bool leavesBlock = outcome.end == End::kFailure &&
                           (Has(outcome.output, "[ERROR] vorn_ext_get_mdl_net_type fail! ret = ") ||
                            Has(outcome.output, "[ERROR] Input data size["));
  const std::string& live = outcome.record.back();
  const std::string others = " buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=0 at=exit";
  Require(live == "live: blocks=0" + others || (leavesBlock && live == "live: blocks=1" + others),
          live);
}

void CheckLines(const Outcome& outcome) {
  const bool succeeded = Has(outcome.output, "[INFO]  execute sample success\n");
  Require(succeeded == (outcome.end == End::kSuccess), "the line of success");
  Require(outcome.end != End::kFailure || Has(outcome.output, "[ERROR]"),
          "a failure without an error line");
}

std::string Describe(const Plan& plan, const Outcome& outcome) {
  std::string text = "the script:\n" + plan.script + "the list:\n" + plan.list + "the output:\n" +
                     outcome.output + "the record:\n";
  for (const std::string& line : outcome.record) text += line + "\n";
  return text;
}

}  // namespace

void WholeRun(std::span<const uint8_t> bytes) {
  ByteSource source(bytes);
  Plan plan = TakePlan(source);
  const Outcome outcome = Run(plan);
  const Surprises surprises = SurprisesIn(outcome.record);
  try {
    CheckLines(outcome);
    CheckViolations(outcome, surprises);
    CheckReleases(outcome, surprises);
  } catch (const Violation& violation) {
    throw Violation{violation.text + "\n" + Describe(plan, outcome)};
  }
}

}  // namespace fuzz
