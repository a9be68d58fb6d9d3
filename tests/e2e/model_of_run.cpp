#include "e2e/model_of_run.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "e2e/model_of_runtime.h"
#include "support/files.h"

namespace e2e {
namespace {

using Side = ModelOfRuntime::Side;
using Strings = std::vector<std::string>;

constexpr uint64_t kMaxDims = 128;
constexpr size_t kMaxPath = 4096;
constexpr size_t kMaxFileName = 255;  // of one component, by the file system
constexpr int kRecurrent = 2;

/// The run is over before `main` could return.
struct KilledBy {
  int signal;
};

/// Division as the machine does it: a divisor of 0 is not checked for.
uint64_t Divide(uint64_t dividend, uint64_t divisor) {
  if (divisor == 0) throw KilledBy{SIGFPE};
  return dividend / divisor;
}

uint64_t Modulo(uint64_t dividend, uint64_t divisor) {
  if (divisor == 0) throw KilledBy{SIGFPE};
  return dividend % divisor;
}

std::string Text(int64_t number) { return std::to_string(number); }
std::string TextU(uint64_t number) { return std::to_string(number); }

std::string Fixed(double value, int digits) {
  char text[400];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

// ---- The disk -----------------------------------------------------------------------------------

/// A path looked at from the folder of the run, which is called `$DIR`.
struct Found {
  enum class What { kFile, kFolder, kNothing, kNotAFolder, kTooLong };
  What what = What::kNothing;
  std::string
      path;  // as far as it was followed: to the end, or to the first name that is not there
  std::string bytes;  // of a file
};

class Disk {
 public:
  explicit Disk(const RunPlan& plan) : files_(plan.files), folders_(plan.folders) {}

  [[nodiscard]] Found Look(const std::string& path) const;

  /// False if the folder that it is to lie in is not there, or the name is too long.
  bool Write(const std::string& path, const std::string& bytes);
  void MakeFolder(const std::string& path);

  [[nodiscard]] const std::map<std::string, std::string>& Files() const { return files_; }

 private:
  std::map<std::string, std::string> files_;  // by name relative to the folder of the run
  std::set<std::string> folders_;
};

Strings SplitPath(const std::string& path) {
  Strings parts;
  std::istringstream stream(path);
  std::string part;
  while (std::getline(stream, part, '/')) parts.push_back(part);
  return parts;
}

Found Disk::Look(const std::string& path) const {
  Found found;
  if (path.empty()) return found;  // no path at all
  std::string rest = path;
  if (rest.compare(0, 4, "$DIR") == 0) rest = rest.substr(4);
  const Strings parts = SplitPath(rest);
  std::string name;  // relative to the folder of the run
  bool isFile = false;
  for (const std::string& part : parts) {
    if (isFile) {
      found.what = Found::What::kNotAFolder;
      return found;
    }
    if (part.empty() || part == ".") continue;
    if (part == "..") {
      if (name.empty()) throw OutsideTheFolder();
      const size_t slash = name.rfind('/');
      name = slash == std::string::npos ? "" : name.substr(0, slash);
      continue;
    }
    if (part.size() > kMaxFileName) {
      found.what = Found::What::kTooLong;
      return found;
    }
    name += (name.empty() ? "" : "/") + part;
    isFile = files_.count(name) == 1;
    if (!isFile && folders_.count(name) == 0) {
      found.path = "$DIR/" + name;
      return found;
    }
  }
  if (isFile && path.back() == '/') {
    found.what = Found::What::kNotAFolder;
    return found;
  }
  found.what = isFile ? Found::What::kFile : Found::What::kFolder;
  found.path = name.empty() ? "$DIR" : "$DIR/" + name;
  if (isFile) found.bytes = files_.at(name);
  return found;
}

bool Disk::Write(const std::string& path, const std::string& bytes) {
  const size_t slash = path.rfind('/');
  const Found folder = Look(path.substr(0, slash));
  const std::string name = path.substr(slash + 1);
  // The stamp stands in the name as one letter and is 16 digits long.
  if (folder.what != Found::What::kFolder || name.size() + 15 > kMaxFileName) return false;
  files_[folder.path.substr(5) + "/" + name] = bytes;
  return true;
}

void Disk::MakeFolder(const std::string& path) {
  if (path.front() == '/') throw OutsideTheFolder();
  const Found above = Look(path.substr(0, path.rfind('/')));
  const Found itself = Look(path);
  if (above.what == Found::What::kFolder && itself.what == Found::What::kNothing) {
    folders_.insert(itself.path.substr(5));
  }
}

// ---- The command --------------------------------------------------------------------------------

/// All that the command remembers, and its steps from the command line to the last line.
class Command {
 public:
  explicit Command(const RunPlan& plan) : plan_(plan), runtime_(plan), disk_(plan) {}

  ForetoldRun Run();

 private:
  /// Size, stride and shape of an input or output.
  struct StrideParam {
    uint64_t size = 0;
    uint64_t stride = 0;
    ShapeAnswer dims;
  };

  void Say(const std::string& line) {
    TakeRecord();
    out_ += line + "\n";
    together_ += line + "\n";
  }

  /// Takes what the runtime has recorded since the last line over into what is said and called.
  void TakeRecord() {
    for (; recordTaken_ < runtime_.Record().size(); ++recordTaken_) {
      together_ += runtime_.Record()[recordTaken_] + "\n";
    }
  }

  /// An exception that nobody catches.
  [[noreturn]] void Terminate(const std::string& type, const std::string& text);

  int Main();
  void ParseArgs();
  int Convert(const std::string& value);
  int PreparePaths();
  int GetRealPath(std::string* path);
  Strings ReadInputListFile(const std::string& path);
  int RunSample();

  int InitResource();
  void DestroyResource();
  void PrintPerfInfo();

  int Process();
  int ProcessSteps();
  int LoadModel();
  uint64_t ReadBinFile(uint32_t* size);
  int GetFileSize(uint32_t* size);
  int CheckPathIsFile(const std::string& path);
  int CreateDesc();
  void PrintModelInfo();
  bool PrintTensor(Side side, uint64_t index, uint64_t inputs);
  void CollectModelSizes();
  void SortInputsByName();
  bool CheckInputNames();
  uint64_t GetInputNum() { return runtime_.GetNum(Side::kInput) - 2; }
  void Release();
  void UnloadModel();
  void DestroyDataset(uint64_t* dataset);

  int CreateOutput();
  int RunInference(uint64_t iteration, uint64_t inputNum);
  int InitInput();
  int CreateInputBuf(const Strings& files);
  int CreateInput(uint64_t block, uint64_t size, uint64_t stride);
  int GetInputStrideParam(uint64_t index, StrideParam* param);
  int CreateExtraInput(uint64_t index);
  int CreateTaskBufAndWorkBuf();
  uint64_t ReadInputFile(const std::string& path, const ShapeAnswer& dims, uint64_t index);
  int CheckShape(const ShapeAnswer& dims, uint64_t elem, uint64_t fileSize, uint64_t singleBatch);
  void CountFrames(const ShapeAnswer& dims, uint64_t elem, uint64_t fileSize);
  void ReportFrames(uint64_t limit);
  void CopyRows(const std::string& bytes, uint64_t block, uint64_t singleBatch, uint64_t stride,
                uint64_t rowBytes);

  int SetBatchSize();
  int SetRpnData();
  int ReadRpnPara(const std::string& path, std::vector<float>* values);
  int CheckRpn(const std::vector<float>& values);
  int CreateRpnBuffer(const std::vector<float>& values);
  int SetNlpTotalT();
  int Execute();

  void DumpOutputData();
  void WriteOutputFile(const std::string& name, uint64_t index, uint32_t code, bool isText);
  int GetOutputWithOutStride(uint64_t index, uint32_t code, std::vector<float>* values);
  int GetOutputStrideParam(uint64_t index, StrideParam* param);

  const RunPlan& plan_;
  ModelOfRuntime runtime_;
  Disk disk_;
  std::string out_;
  std::string together_;
  size_t recordTaken_ = 0;  // lines of it that are in `together_`
  std::string err_;

  // The command line.
  std::string modelPath_;
  std::string imagePath_;
  std::string jsonPath_;
  std::string rpnData_;
  std::string outputPath_;
  int32_t batchOption_ = 1;
  int32_t nlpTotalT_ = -1;
  int32_t profile_ = 0;

  // The run.
  Strings inputFiles_;
  Strings inputNames_;
  Strings rpnFiles_;
  uint64_t context_ = 0;
  uint64_t stream_ = 0;

  // The network.
  uint32_t batchSize_ = 1;
  uint32_t execCounter_ = 0;
  uint32_t modelId_ = 0;
  uint64_t modelMem_ = 0;
  bool loaded_ = false;
  uint64_t desc_ = 0;
  uint64_t inputDataset_ = 0;
  uint64_t outputDataset_ = 0;
  uint32_t rpnHeight_ = 0;
  uint32_t rpnWidth_ = 0;

  // What the report shows; the times are not foretold.
  uint32_t inputSize_ = 0;
  uint32_t taskBufSize_ = 0;
  uint32_t workBufSize_ = 0;
  uint32_t outputSize_ = 0;
  uint32_t omSize_ = 0;
  uint32_t executeCount_ = 21;
};

ForetoldRun Command::Run() {
  ForetoldRun run;
  try {
    run.status = Main();
    runtime_.EndOfProcess();
  } catch (const KilledBy& end) {
    run.signal = end.signal;
  }
  run.lines = support::SplitLines(out_);
  run.errors = support::SplitLines(err_);
  run.record = runtime_.Record();
  TakeRecord();
  run.together = support::SplitLines(together_);
  for (const auto& [name, bytes] : disk_.Files()) {
    if (name.compare(0, 4, "out/") == 0) run.files[name.substr(4)] = bytes;
  }
  return run;
}

void Command::Terminate(const std::string& type, const std::string& text) {
  err_ += "terminate called after throwing an instance of 'std::" + type + "'\n  what():  " + text +
          "\n";
  throw KilledBy{SIGABRT};
}

// ---- The command line ---------------------------------------------------------------------------

int Command::Main() {
  ParseArgs();
  if (PreparePaths() != 0) return 1;
  return RunSample();
}

void Command::ParseArgs() {
  const std::string usage =
      "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] [-b batchSize] "
      "[-r rpnData] [-p profile] [-o outputPath]";
  const char* const options = "m:i:j:t:b:r:p:o:";
  Strings words = plan_.words;
  words.insert(words.begin(), "vorn-run");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const int argc = static_cast<int>(words.size());

  optind = 0;  // start afresh
  opterr = 0;  // what it says of its own accord is written below
  size_t k = 0;
  for (;;) {
    const int character = getopt(argc, argv.data(), options);
    if (character == -1) break;
    k += 2;
    if (character == '?') {
      const bool known = optopt != ':' && std::strchr(options, optopt) != nullptr;
      err_ += std::string("vorn-run: ") +
              (known ? "option requires an argument" : "invalid option") + " -- '" +
              static_cast<char>(optopt) + "'\n";
    }
    if (character < 'b' || character > 't') {
      Say(usage);
      continue;
    }
    if (k >= words.size()) {
      Terminate("logic_error", "basic_string::_M_construct null not valid");
    }
    const std::string value = argv[k];
    switch (character) {
      case 'm':
        modelPath_ = value;
        break;
      case 'i':
        imagePath_ = value;
        break;
      case 'j':
        jsonPath_ = value;
        break;
      case 'r':
        rpnData_ = value;
        break;
      case 'o':
        outputPath_ = value;
        break;
      case 'b':
        batchOption_ = Convert(value);
        Say("[INFO]  batchSize: " + Text(batchOption_));
        break;
      case 't':
        nlpTotalT_ = Convert(value);
        Say("[INFO]  nlpTotalT: " + Text(nlpTotalT_));
        break;
      case 'p':
        profile_ = Convert(value);
        break;
      default:
        Say(usage);
    }
  }
}

int Command::Convert(const std::string& value) {
  try {
    return std::stoi(value);
  } catch (const std::invalid_argument&) {
    Terminate("invalid_argument", "stoi");
  } catch (const std::out_of_range&) {
    Terminate("out_of_range", "stoi");
  }
}

// ---- Paths --------------------------------------------------------------------------------------

int Command::PreparePaths() {
  if (GetRealPath(&modelPath_) != 0) return 1;
  inputFiles_ = ReadInputListFile(imagePath_);
  if (GetRealPath(&jsonPath_) != 0) return 1;
  if (rpnData_.empty()) return 0;
  std::istringstream stream(rpnData_);
  std::string piece;
  while (std::getline(stream, piece, ',')) {
    if (GetRealPath(&piece) != 0) return 1;
    rpnFiles_.push_back(piece);
  }
  return 0;
}

int Command::GetRealPath(std::string* path) {
  Say("[INFO]  inputPath: " + *path);
  if (path->empty() || path->size() > kMaxPath) {
    Say("[ERROR] inputPath size = " + TextU(path->size()) + ", out of range (0, 4096] error");
    return 1;
  }
  const Found found = disk_.Look(*path);
  if (found.what == Found::What::kNotAFolder || found.what == Found::What::kTooLong) {
    Say("[ERROR] realpath fail, input: " + *path);
  }
  *path = found.path;
  return 0;
}

/// `name:path`, with something on both sides of the first colon.
bool HasInputNamePrefix(const std::string& line) {
  const size_t colon = line.find(':');
  return colon != std::string::npos && colon != 0 && colon != line.size() - 1;
}

Strings Command::ReadInputListFile(const std::string& path) {
  const Found list = disk_.Look(path);
  if (list.what != Found::What::kFile) {
    Say("[ERROR] open file " + path + " failed");
    return {};
  }
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash);
  Strings entries;
  std::istringstream stream(list.bytes);
  std::string line;
  while (std::getline(stream, line)) {
    if (line.empty()) continue;
    if (HasInputNamePrefix(line)) {
      const size_t colon = line.find(':');
      entries.push_back(line.substr(0, colon) + ":" + folder + "/" + line.substr(colon + 1));
    } else {
      entries.push_back(folder + "/" + line);
    }
  }
  return entries;
}

// ---- The runtime up and down --------------------------------------------------------------------

int Command::RunSample() {
  int result = 1;
  if (InitResource() != 0) {
    Say("[ERROR] sample init resource failed");
  } else if (Process() != 0) {
    Say("[ERROR] sample process failed");
  } else {
    Say("[INFO]  execute sample success");
    result = 0;
  }
  DestroyResource();
  return result;
}

int Command::InitResource() {
  if (runtime_.Init(jsonPath_) != 0) {
    Say("[ERROR] vorn init failed");
    return 1;
  }
  Say("[INFO]  vorn init success");
  if (runtime_.SetDevice(0) != 0) {
    Say("[ERROR] vorn open device 0 failed");
    return 1;
  }
  Say("[INFO]  open device 0 success");
  if (runtime_.SetOpWaitTimeout(0) != 0) {
    Say("[ERROR] vorn set op wait time failed");
    return 1;
  }
  Say("[INFO]  set op wait time success");
  if (runtime_.CreateContext(0, &context_) != 0) {
    Say("[ERROR] vorn create context failed");
    return 1;
  }
  Say("[INFO]  create context success");
  if (runtime_.CreateStream(&stream_) != 0) {
    Say("[ERROR] vorn create stream failed");
    return 1;
  }
  Say("[INFO]  create stream success");
  int32_t runMode = 0;
  if (runtime_.GetRunMode(&runMode) != 0) {
    Say("[ERROR] vorn get run mode failed");
    return 1;
  }
  if (runMode != 0) {
    Say("[ERROR] vorn run mode failed");
    return 1;
  }
  Say("[INFO]  get run mode success");
  return 0;
}

void Command::DestroyResource() {
  if (stream_ != 0 && runtime_.DestroyStream(stream_) != 0) Say("[ERROR] destroy stream failed");
  Say("[INFO]  end to destroy stream");
  if (context_ != 0 && runtime_.DestroyContext(context_) != 0) {
    Say("[ERROR] destroy context failed");
  }
  Say("[INFO]  end to destroy context");
  if (runtime_.ResetDevice(0) != 0) Say("[ERROR] reset device failed");
  Say("[INFO]  end to reset device is 0");
  if (runtime_.Finalize() != 0) Say("[ERROR] finalize vorn failed");
  Say("[INFO]  end to finalize vorn");
  if (profile_ == 1) PrintPerfInfo();
}

void Command::PrintPerfInfo() {
  const auto kilobytes = [](uint32_t bytes) {
    return Fixed(static_cast<double>(bytes) * 0.0009765625, 3) + " KB.";
  };
  Say("[INFO]  " + std::string(51, '='));
  Say("[INFO]  Input Size:                " + kilobytes(inputSize_));
  Say("[INFO]  Task Buffer Size:          " + kilobytes(taskBufSize_));
  Say("[INFO]  Work Buffer Size:          " + kilobytes(workBufSize_));
  Say("[INFO]  Output Size:               " + kilobytes(outputSize_));
  Say("[INFO]  Om Size:                   " + kilobytes(omSize_));
  Say("[INFO]  " + std::string(51, '-'));
  Say("[INFO]  Read Model File Time:      T ms");
  Say("[INFO]  Model Load Time:           T ms");
  Say("[INFO]  Model Execute Time:        T ms");
  Say("[INFO]  " + std::string(51, '='));
}

// ---- The network from its load to its release ---------------------------------------------------

int Command::Process() {
  const int result = ProcessSteps();
  Release();
  return result;
}

int Command::ProcessSteps() {
  batchSize_ = static_cast<uint32_t>(batchOption_);
  if (LoadModel() != 0) {
    Say("[ERROR] execute LoadModelFromFileWithMem failed");
    return 1;
  }
  int status = CreateDesc();  // checked below, unless an entry has overwritten it by then
  SortInputsByName();
  for (std::string& entry : inputFiles_) {
    status = GetRealPath(&entry);
    if (status != 0) return 1;
  }
  if (status != 0) {
    Say("[ERROR] execute CreateDesc failed");
    return 1;
  }
  if (CreateOutput() != 0) {
    Say("[ERROR] execute CreateOutput failed");
    return 1;
  }
  const uint64_t inputNum = GetInputNum() - rpnFiles_.size();
  Say("[INFO]  Model inputNum: " + TextU(inputNum));
  const uint64_t iterations = Divide(inputFiles_.size(), inputNum);
  Say("[INFO]  Model Iters : " + TextU(iterations));
  for (uint64_t i = 0; i < iterations; ++i) {
    if (RunInference(i, inputNum) == 1) return 1;
  }
  return 0;
}

int Command::LoadModel() {
  uint32_t size = 0;
  modelMem_ = ReadBinFile(&size);
  // The answer is ignored.
  (void)runtime_.LoadFromMem(modelMem_, size, &modelId_);
  if (GetFileSize(&omSize_) != 0) {
    runtime_.Free(modelMem_);
    Say("[ERROR] load model from file failed, model file is " + modelPath_);
    return 1;
  }
  loaded_ = true;
  Say("[INFO]  load model " + modelPath_ + " success");
  return 0;
}

uint64_t Command::ReadBinFile(uint32_t* size) {
  if (CheckPathIsFile(modelPath_) != 0) return 0;
  const std::string bytes = disk_.Look(modelPath_).bytes;
  if (bytes.empty()) {
    Say("[ERROR] binfile is empty, filename is " + modelPath_);
    return 0;
  }
  uint64_t block = 0;
  if (runtime_.Malloc(bytes.size(), &block) != 0) {
    Say("[ERROR] malloc device buffer failed. size is " + TextU(bytes.size()));
    return 0;
  }
  runtime_.BytesOf(block) = bytes;
  *size = static_cast<uint32_t>(bytes.size());
  return block;
}

int Command::GetFileSize(uint32_t* size) {
  const Found file = disk_.Look(modelPath_);
  if (file.what != Found::What::kFile) {
    Say("[ERROR] open file " + modelPath_ + " failed");
    return 1;
  }
  if (file.bytes.empty()) {
    Say("[ERROR] binfile is empty, filename is " + modelPath_);
    return 1;
  }
  *size = static_cast<uint32_t>(file.bytes.size());
  return 0;
}

int Command::CheckPathIsFile(const std::string& path) {
  const Found found = disk_.Look(path);
  if (found.what == Found::What::kFile) return 0;
  if (found.what == Found::What::kFolder) {
    Say("[ERROR] " + path + " is not a file, please enter a file");
  } else {
    Say("[ERROR] failed to get file " + path);
  }
  return 1;
}

int Command::CreateDesc() {
  desc_ = runtime_.CreateDesc();
  if (desc_ == 0) {
    Say("[ERROR] create model description failed");
    return 1;
  }
  if (runtime_.GetDesc(desc_, modelId_) != 0) {
    Say("[ERROR] get model description failed");
    return 1;
  }
  Say("[INFO]  create model description success");
  PrintModelInfo();
  CollectModelSizes();
  return 0;
}

/// The dimensions that there are: a record holds no more than 128.
uint64_t CountDims(const ShapeAnswer& shape) { return std::min(shape.dimCount, kMaxDims); }

void Command::PrintModelInfo() {
  Say("[INFO]  ------------------ Input Info ------------------");
  const uint64_t inputs = runtime_.GetNum(Side::kInput);
  for (uint64_t i = 0; i < inputs; ++i) {
    if (!PrintTensor(Side::kInput, i, inputs)) return;
  }
  Say("[INFO]  ------------------ Output Info ------------------");
  const uint64_t outputs = runtime_.GetNum(Side::kOutput);
  for (uint64_t i = 0; i < outputs; ++i) {
    if (!PrintTensor(Side::kOutput, i, inputs)) return;
  }
}

bool Command::PrintTensor(Side side, uint64_t index, uint64_t inputs) {
  const bool isInput = side == Side::kInput;
  ShapeAnswer shape;
  if (runtime_.GetDims(side, index, &shape) != 0) {
    Say(isInput ? "[ERROR] get input dims failed" : "[ERROR] get output dims failed");
    return false;
  }
  if (isInput && index < inputs - 2) inputNames_.push_back(shape.name);
  Say(std::string("[INFO]  ") + (isInput ? "Input" : "Output") + " index: " + TextU(index) +
      ", name: " + shape.name);
  std::string text = "[";
  for (uint64_t k = 0; k < CountDims(shape); ++k) text += Text(shape.dims[k]) + ", ";
  Say("[INFO]  Shape: " + text + "]");
  const uint32_t type = runtime_.GetDataType(side, index);
  const uint64_t size = batchSize_ * runtime_.GetSize(side, index);
  const uint64_t stride = runtime_.GetStride(side, index);
  const int32_t format = runtime_.GetFormat(side, index);
  Say("[INFO]  DataType: " + Text(static_cast<int32_t>(type)) + ", stride: " + TextU(stride) +
      ", format: " + Text(format) + ", dataSizeWithStride: " + TextU(size));
  return true;
}

void Command::CollectModelSizes() {
  const auto sizeOf = [&](Side side, int32_t index) {
    // The index counts in 32 bits with a sign; what is below 0 becomes an index that no model has.
    return static_cast<uint32_t>(
        runtime_.GetSize(side, static_cast<uint64_t>(static_cast<int64_t>(index))));
  };
  const auto inputs = static_cast<int32_t>(runtime_.GetNum(Side::kInput));
  const auto outputs = static_cast<int32_t>(runtime_.GetNum(Side::kOutput));
  for (int32_t i = 0; i < inputs - 2; ++i) inputSize_ += sizeOf(Side::kInput, i);
  taskBufSize_ += sizeOf(Side::kInput, inputs - 2);
  workBufSize_ += sizeOf(Side::kInput, inputs - 1);
  for (int32_t i = 0; i < outputs; ++i) outputSize_ += sizeOf(Side::kOutput, i);
}

void Command::SortInputsByName() {
  Strings& entries = inputFiles_;
  const size_t count = inputNames_.size();
  if (Modulo(entries.size(), count) != 0) return;
  const size_t groups = Divide(entries.size(), count);
  if (!CheckInputNames()) return;
  std::map<std::string, size_t> positions;
  for (size_t k = 0; k < count; ++k) positions[inputNames_[k]] = k;
  const auto position = [&](const std::string& entry) {
    return positions[entry.substr(0, entry.find(':'))];
  };
  for (size_t group = 0; group < groups; ++group) {
    const auto first = entries.begin() + static_cast<std::ptrdiff_t>(group * count);
    // Entries of one name may come out in any order. So few come out of the library's sort in the
    // order they went in, and a test wants one answer.
    std::stable_sort(first, first + static_cast<std::ptrdiff_t>(count),
                     [&](const std::string& one, const std::string& other) {
                       return position(one) < position(other);
                     });
  }
  for (std::string& entry : entries) {
    const size_t colon = entry.find(':');
    if (colon != std::string::npos) entry = entry.substr(colon + 1);
  }
}

bool Command::CheckInputNames() {
  for (const std::string& entry : inputFiles_) {
    if (!HasInputNamePrefix(entry)) return false;
    const std::string name = entry.substr(0, entry.find(':'));
    if (std::find(inputNames_.begin(), inputNames_.end(), name) == inputNames_.end()) return false;
  }
  return true;
}

void Command::Release() {
  UnloadModel();
  if (desc_ != 0) {
    runtime_.DestroyDesc(desc_);
    desc_ = 0;
  }
  DestroyDataset(&inputDataset_);
  DestroyDataset(&outputDataset_);
}

void Command::UnloadModel() {
  if (!loaded_) {
    Say("[WARN]  no model had been loaded, unload failed");
    return;
  }
  if (runtime_.Unload(modelId_) != 0) {
    Say("[ERROR] unload model failed, modelId is " + TextU(modelId_));
  }
  if (desc_ != 0) {
    runtime_.DestroyDesc(desc_);
    desc_ = 0;
  }
  if (modelMem_ != 0) {
    runtime_.Free(modelMem_);
    modelMem_ = 0;
  }
  loaded_ = false;
  Say("[INFO]  unload model success, modelId is " + TextU(modelId_));
}

void Command::DestroyDataset(uint64_t* dataset) {
  if (*dataset == 0) return;
  for (uint64_t i = 0; i < runtime_.GetDatasetNumBuffers(*dataset); ++i) {
    const uint64_t buffer = runtime_.GetDatasetBuffer(*dataset, i);
    runtime_.Free(runtime_.GetDataBufferAddr(buffer));
    runtime_.DestroyDataBuffer(buffer);
  }
  runtime_.DestroyDataset(*dataset);
  *dataset = 0;
}

// ---- One inference ------------------------------------------------------------------------------

int Command::CreateOutput() {
  outputDataset_ = runtime_.CreateDataset();
  if (outputDataset_ == 0) {
    Say("[ERROR] can't create dataset, create output failed");
    return 1;
  }
  const uint64_t outputs = runtime_.GetNum(Side::kOutput);
  for (uint64_t i = 0; i < outputs; ++i) {
    const uint64_t stride = runtime_.GetStride(Side::kOutput, i);
    if (stride == 0) {
      Say("[ERROR] Error, output default stride is 0.");
      return 1;
    }
    const uint64_t size = batchSize_ * runtime_.GetSize(Side::kOutput, i);
    if (size == 0) {
      Say("[ERROR] Error, output size is 0.");
      return 1;
    }
    uint64_t block = 0;
    if (runtime_.Malloc(size, &block) != 0) {
      Say("[ERROR] can't malloc buffer, size is " + TextU(size) + ", create output failed");
      return 1;
    }
    runtime_.BytesOf(block) = std::string(size, '\0');
    const uint64_t buffer = runtime_.CreateDataBuffer(block, size, stride);
    if (buffer == 0) {
      Say("[ERROR] can't create data buffer, create output failed");
      runtime_.Free(block);
      return 1;
    }
    if (runtime_.AddDatasetBuffer(outputDataset_, buffer) != 0) {
      Say("[ERROR] can't add data buffer, create output failed");
      runtime_.Free(block);
      runtime_.DestroyDataBuffer(buffer);
      return 1;
    }
  }
  Say("[INFO]  create model output success");
  return 0;
}

int Command::RunInference(uint64_t iteration, uint64_t inputNum) {
  if (InitInput() != 0) {
    Say("[ERROR] execute InitInput failed");
    return 1;
  }
  Strings files;
  for (uint64_t k = 0; k < inputNum; ++k) files.push_back(inputFiles_[iteration * inputNum + k]);
  if (CreateInputBuf(files) != 0) {
    Say("[ERROR] CreateInputBuf failed");
    return 1;
  }
  if (SetBatchSize() != 0) {
    Say("[ERROR] Set batch size failed");
    return 1;
  }
  if (SetRpnData() != 0) {
    Say("[ERROR] Set rpn data failed");
    return 1;
  }
  if (CreateTaskBufAndWorkBuf() != 0) {
    Say("[ERROR] CreateTaskBufAndWorkBuf failed");
    return 1;
  }
  if (Execute() != 0) {
    Say("[ERROR] execute inference failed");
    DestroyDataset(&inputDataset_);
    return 1;
  }
  DumpOutputData();
  DestroyDataset(&inputDataset_);
  return 0;
}

// ---- The input dataset --------------------------------------------------------------------------

int Command::InitInput() {
  inputDataset_ = runtime_.CreateDataset();
  if (inputDataset_ != 0) return 0;
  Say("[ERROR] can't create dataset, create input failed");
  return 1;
}

int Command::CreateInputBuf(const Strings& files) {
  for (uint64_t i = 0; i < files.size(); ++i) {
    Say("[INFO]  start to process file:" + files[i]);
    StrideParam param;
    if (GetInputStrideParam(i, &param) != 0) {
      Say("[ERROR] GetStrideParam error");
      return 1;
    }
    if (runtime_.DataTypeSize(runtime_.GetDataType(Side::kInput, i)) / 8 == 0) {
      Say("[ERROR] GetInputDataSize == 0 error");
      return 1;
    }
    const uint64_t block = ReadInputFile(files[i], param.dims, i);
    if (block == 0) {
      Say("[ERROR] get pic device buffer failed");
      return 1;
    }
    if (CreateInput(block, param.size, param.stride) != 0) {
      Say("[ERROR] execute CreateInput failed");
      runtime_.Free(block);
      return 1;
    }
  }
  return 0;
}

int Command::CreateInput(uint64_t block, uint64_t size, uint64_t stride) {
  // The stride goes through 32 bits with a sign.
  const auto widened = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(stride)));
  const uint64_t buffer = runtime_.CreateDataBuffer(block, size, widened);
  if (buffer == 0) {
    Say("[ERROR] can't create data buffer, create input failed");
    return 1;
  }
  if (runtime_.AddDatasetBuffer(inputDataset_, buffer) != 0) {
    Say("[ERROR] add input dataset buffer failed");
    runtime_.DestroyDataBuffer(buffer);
    return 1;
  }
  return 0;
}

int Command::GetInputStrideParam(uint64_t index, StrideParam* param) {
  if (runtime_.GetDims(Side::kInput, index, &param->dims) != 0) {
    Say("[ERROR] vorn_mdl_get_input_dims error!");
    return 1;
  }
  param->stride = runtime_.GetStride(Side::kInput, index);
  if (param->stride == 0) {
    Say("[ERROR] vorn_mdl_get_input_default_stride error!");
    return 1;
  }
  param->size = batchSize_ * runtime_.GetSize(Side::kInput, index);
  if (param->size == 0) {
    Say("[ERROR] vorn_mdl_get_input_size_by_index error!");
    return 1;
  }
  return 0;
}

int Command::CreateExtraInput(uint64_t index) {
  StrideParam param;
  if (GetInputStrideParam(index, &param) != 0) {
    Say("[ERROR] Error, GetInputStrideParam failed");
    return 1;
  }
  uint64_t block = 0;
  if (runtime_.Malloc(param.size, &block) != 0) {
    Say("[ERROR] malloc device buffer failed. size is " + TextU(param.size));
    return 1;
  }
  runtime_.BytesOf(block) = std::string(param.size, '\0');
  if (CreateInput(block, param.size, param.stride) != 0) {
    Say("[ERROR] execute CreateInput failed");
    runtime_.Free(block);
    return 1;
  }
  return 0;
}

int Command::CreateTaskBufAndWorkBuf() {
  const uint64_t inputs = runtime_.GetNum(Side::kInput);
  if (inputs <= 2) {
    Say("[ERROR] input dataset Num is error.");
    return 1;
  }
  const uint64_t present = runtime_.GetDatasetNumBuffers(inputDataset_);
  if (present == 0) {
    Say("[ERROR] input dataset Num is 0.");
    return 1;
  }
  for (uint64_t index = present; index < inputs; ++index) {
    if (CreateExtraInput(index) != 0) {
      Say("[ERROR] execute Create taskBuffer and workBuffer failed");
      return 1;
    }
  }
  return 0;
}

// ---- One input file -----------------------------------------------------------------------------

/// The last dimension; a tensor of rank 0 has no row.
int64_t RowOf(const ShapeAnswer& dims) {
  return CountDims(dims) == 0 ? 0 : dims.dims[CountDims(dims) - 1];
}

uint64_t Command::ReadInputFile(const std::string& path, const ShapeAnswer& dims, uint64_t index) {
  if (CheckPathIsFile(path) != 0) return 0;
  const uint64_t singleBatch = runtime_.GetSize(Side::kInput, index);
  Say("[INFO]  The amount of data required for inference in a single batch is [" +
      TextU(singleBatch) + "]");
  const uint64_t stride = runtime_.GetStride(Side::kInput, index);
  Say("[INFO]  The stride of model is [" + TextU(stride) + "]");
  const uint64_t elem = runtime_.DataTypeSize(runtime_.GetDataType(Side::kInput, index)) / 8;
  Say("[INFO]  The data size of data type is [" + TextU(elem) + "]");
  if (elem == 0) {
    Say("[ERROR] GetInputDataSize == 0 error");
    return 0;
  }
  const std::string bytes = disk_.Look(path).bytes;
  Say("[INFO]  Reading bin file [" + path + "]");
  if (bytes.empty()) {
    Say("[ERROR] Empty file: " + path);
    return 0;
  }
  const uint32_t allocatedBatch = batchSize_;
  uint64_t block = 0;
  if (runtime_.Malloc(batchSize_ * singleBatch, &block) != 0) {
    Say("[ERROR] malloc device buffer failed. size is " + TextU(batchSize_ * singleBatch));
    return 0;
  }
  int32_t netType = 0;
  const int32_t status = runtime_.GetNetType(modelId_, &netType);
  if (status != 0) {
    Say("[ERROR] vorn_ext_get_mdl_net_type fail! ret = " + Text(status));
    return 0;
  }
  if (netType == kRecurrent && index == 0) {
    CountFrames(dims, elem, bytes.size());
  } else if (netType == kRecurrent && index == 1) {
    // Without a sign, unlike the first dimension of input 0.
    const auto flags = static_cast<uint64_t>(RowOf(dims));
    if (static_cast<uint64_t>(int64_t{nlpTotalT_}) > flags) ReportFrames(flags);
  } else if (CheckShape(dims, elem, bytes.size(), singleBatch) != 0) {
    return 0;
  }
  if (batchSize_ > allocatedBatch) {
    runtime_.Free(block);
    block = 0;
    if (runtime_.Malloc(batchSize_ * singleBatch, &block) != 0) {
      Say("[ERROR] malloc device buffer failed. size is " + TextU(batchSize_ * singleBatch));
      return 0;
    }
  }
  CopyRows(bytes, block, singleBatch, stride, static_cast<uint64_t>(RowOf(dims)) * elem);
  return block;
}

int Command::CheckShape(const ShapeAnswer& dims, uint64_t elem, uint64_t fileSize,
                        uint64_t singleBatch) {
  std::string text;
  uint64_t dense = elem;
  for (uint64_t k = 0; k < CountDims(dims); ++k) {
    text += (k == 0 ? "" : ",") + Text(dims.dims[k]);
    dense *= static_cast<uint64_t>(dims.dims[k]);
  }
  Say("[INFO]  The shape of the model is [" + text + "]");
  if (Divide(fileSize, dense) != batchSize_) {
    Say("[WARN]  The input data shape not match model's input shape [N,C,H,W]");
    if (singleBatch <= fileSize) {
      batchSize_ = static_cast<uint32_t>(Divide(fileSize, singleBatch));
      Say("[WARN]  Reset the batchSize to [" + TextU(batchSize_) + "]");
    }
  }
  const uint64_t expected = batchSize_ * singleBatch;
  if (expected < fileSize) {
    Say("[ERROR] Input data size[" + TextU(fileSize) + "] must be smaller than malloc size[" +
        TextU(expected) + "]");
    return 1;
  }
  return 0;
}

void Command::CountFrames(const ShapeAnswer& dims, uint64_t elem, uint64_t fileSize) {
  uint64_t frameBytes = elem;
  for (uint64_t k = 1; k < CountDims(dims); ++k) {
    frameBytes *= static_cast<uint64_t>(dims.dims[k]);
  }
  nlpTotalT_ = static_cast<int32_t>(Divide(fileSize, frameBytes));
  batchSize_ = 1;
  const int64_t limit = CountDims(dims) == 0 ? 0 : dims.dims[0];
  if (nlpTotalT_ > limit) ReportFrames(static_cast<uint64_t>(limit));
}

void Command::ReportFrames(uint64_t limit) {
  Say("[ERROR] Current number of frames[" + TextU(static_cast<uint32_t>(nlpTotalT_)) +
      "] must be smaller than the recurrent_max_total_t[" + TextU(limit) + "]");
}

void Command::CopyRows(const std::string& bytes, uint64_t block, uint64_t singleBatch,
                       uint64_t stride, uint64_t rowBytes) {
  const auto rows = static_cast<int32_t>(Divide(singleBatch, stride));
  if (rowBytes >= uint64_t{1} << 63) return;  // a row of a negative length is not read
  std::string& memory = runtime_.BytesOf(block);
  uint64_t read = 0;  // of the file so far
  for (uint32_t b = 0; b < batchSize_; ++b) {
    for (int32_t r = 0; r < rows; ++r) {
      const uint64_t start = b * singleBatch + static_cast<uint64_t>(r) * stride;
      // One byte after the other, as far as there are any and there is room.
      for (uint64_t at = 0; at < rowBytes && read + at < bytes.size(); ++at) {
        if (start + at < memory.size()) memory[start + at] = bytes[read + at];
      }
      read = rowBytes > bytes.size() - read ? bytes.size() : read + rowBytes;
    }
  }
}

// ---- Settings of the input dataset --------------------------------------------------------------

int Command::SetBatchSize() {
  const int32_t status = runtime_.SetDynamicBatchSize(modelId_, inputDataset_, 0, batchSize_);
  if (status != 0) {
    Say("[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = " + Text(status));
    return 1;
  }
  Say("[WARN]  vorn_mdl_set_dynamic_batch_size set batchsize to " + TextU(batchSize_));
  return 0;
}

int Command::SetRpnData() {
  std::vector<std::vector<float>> lists;
  for (const std::string& path : rpnFiles_) {
    std::vector<float> values;
    if (ReadRpnPara(path, &values) != 0) {
      Say("[ERROR] read rpn para error");
      return 1;
    }
    if (CheckRpn(values) != 0) return 1;
    lists.push_back(values);
  }
  for (const auto& values : lists) {
    if (CreateRpnBuffer(values) != 0) {
      Say("[ERROR] SetDetParas error");
      return 1;
    }
  }
  return 0;
}

int Command::ReadRpnPara(const std::string& path, std::vector<float>* values) {
  if (CheckPathIsFile(path) != 0) return 1;
  std::istringstream stream(disk_.Look(path).bytes);
  float value = 0;
  while (!stream.eof()) {
    if (!stream.good()) return 1;
    stream >> value;
    values->push_back(value);
  }
  return 0;
}

int Command::CheckRpn(const std::vector<float>& values) {
  ShapeAnswer dims;
  if (runtime_.GetDims(Side::kInput, GetInputNum() - 1, &dims) != 0 || dims.dimCount != 2) {
    Say("[ERROR] vorn_mdl_get_input_dims rpn_data error!");
    return 1;
  }
  rpnHeight_ = static_cast<uint32_t>(std::max<int64_t>(0, dims.dims[0]));
  rpnWidth_ = static_cast<uint32_t>(std::max<int64_t>(0, dims.dims[1]));
  Say("[INFO]  input rpn data height[" + TextU(rpnHeight_) + "] * width[" + TextU(rpnWidth_) + "]");
  const uint32_t area = rpnHeight_ * rpnWidth_;
  if (rpnHeight_ == 1) {
    if (values.size() == 4 && area == 4) return 0;
    Say("[ERROR] [single thr]: detPara.size " + TextU(values.size() / 4) +
        " should be 4, Please check rpn file.");
    return 1;
  }
  if (rpnHeight_ == 4) {
    if (values.size() == area) return 0;
    Say("[ERROR] [multi thr]: detPara.size " + TextU(values.size()) + " should be " + TextU(area));
    return 1;
  }
  Say("[ERROR] only support single or multi class");
  return 1;
}

int Command::CreateRpnBuffer(const std::vector<float>& values) {
  const uint64_t size = runtime_.GetSize(Side::kInput, 1);
  uint64_t block = 0;
  if (runtime_.Malloc(size, &block) != 0) {
    Say("[ERROR] malloc device buffer failed");
    return 1;
  }
  std::string& memory = runtime_.BytesOf(block);
  memory = std::string(size, '\0');
  const uint64_t stride = runtime_.GetStride(Side::kInput, 1);
  const auto put = [&](int64_t offset, float value) {
    // A value that does not lie in the block as a whole is left out.
    if (offset < 0 || static_cast<uint64_t>(offset) + 4 > memory.size()) return;
    std::memcpy(memory.data() + offset, &value, 4);
  };
  if (values.size() < 5) {
    for (size_t k = 0; k < 4; ++k) put(static_cast<int64_t>(k) * 4, values.at(k));
  } else {
    int64_t row = static_cast<int32_t>(stride);
    while (row % 4 != 0) --row;
    // Class by class: where rows overlap, the later class stays.
    for (int64_t c = 0; c < rpnWidth_; ++c) {
      bool reached = false;  // a width of many millions has values for few classes
      for (int64_t k = 0; k < 4; ++k) {
        const auto index = static_cast<size_t>(k * rpnWidth_ + c);
        if (index >= values.size()) continue;  // the area goes through 32 bits and may be less
        put(k * row + c * 4, values[index]);
        reached = true;
      }
      if (!reached) break;
    }
  }
  const uint64_t buffer = runtime_.CreateDataBuffer(block, size, stride);
  if (buffer == 0) {
    runtime_.Free(block);
    Say("[ERROR] can't create data buffer, create input failed");
    return 1;
  }
  if (runtime_.AddDatasetBuffer(inputDataset_, buffer) != 0) {
    Say("[ERROR] add input dataset buffer failed");
    runtime_.Free(block);
    runtime_.DestroyDataBuffer(buffer);
    return 1;
  }
  return 0;
}

int Command::SetNlpTotalT() {
  if (nlpTotalT_ <= 0) return 0;
  int32_t netType = 0;
  int32_t status = runtime_.GetNetType(modelId_, &netType);
  if (status != 0) {
    Say("[ERROR] vorn_ext_get_mdl_net_type fail! ret = " + Text(status));
    return 1;
  }
  Say("[INFO]  vorn_ext_get_mdl_net_type model type: " + Text(netType));
  if (netType != kRecurrent) return 0;
  status = runtime_.SetTotalT(modelId_, inputDataset_, static_cast<uint64_t>(nlpTotalT_));
  if (status != 0) {
    Say("[ERROR] vorn_mdl_set_total_t failed, ret = " + Text(status));
    return 1;
  }
  Say("[WARN]  vorn_mdl_set_total_t set total_t to " + Text(nlpTotalT_));
  return 0;
}

int Command::Execute() {
  if (SetNlpTotalT() != 0) {
    Say("[ERROR] Set nlpTotalt failed");
    return 1;
  }
  if (profile_ != 1) executeCount_ = 1;
  runtime_.SetOpWaitTimeout(0);
  int32_t status = 0;
  for (uint32_t n = 0; n < executeCount_; ++n) {
    status = runtime_.Execute(modelId_, inputDataset_, outputDataset_);
  }
  if (status != 0) {
    Say("[ERROR] execute model failed, modelId is " + TextU(modelId_));
    return 1;
  }
  ++execCounter_;
  Say("[INFO]  model execute success");
  return 0;
}

// ---- The dump -----------------------------------------------------------------------------------

void Command::DumpOutputData() {
  const uint64_t outputs = runtime_.GetDatasetNumBuffers(outputDataset_);
  const std::string folder = outputPath_ + "/" + TextU(execCounter_ - 1);
  disk_.MakeFolder(folder);
  Strings names;
  for (uint64_t i = 0; i < outputs; ++i) {
    std::string name = runtime_.GetOutputName(i);
    for (char& c : name) {
      if (c == '.' || c == '/' || c == '\\') c = '_';
    }
    if (name.empty()) name = "output";
    const auto before = std::count(names.begin(), names.end(), name);
    names.push_back(name);
    const std::string base = folder + "/" + name + "." + Text(before) + ".T";
    const uint32_t code = runtime_.GetDataType(Side::kOutput, i);
    Say("[INFO]  The value of vorn_data_type is [" + TextU(code) + "]");
    WriteOutputFile(base + ".float", i, code, true);
    WriteOutputFile(base + ".bin", i, code, false);
  }
  Say("[INFO]  dump data success");
}

void Command::WriteOutputFile(const std::string& name, uint64_t index, uint32_t code, bool isText) {
  std::vector<float> values;
  if (GetOutputWithOutStride(index, code, &values) != 0) {
    Say("[ERROR] GetOutputWithOutStride fail");
    return;
  }
  std::string bytes;
  for (const float value : values) {
    bytes += isText ? Fixed(static_cast<double>(value), 16) + "\n"
                    : std::string(reinterpret_cast<const char*>(&value), 4);
  }
  if (!disk_.Write(name, bytes)) Say("[ERROR] create output file [" + name + "] failed");
}

/// How an element of a type code is read.
uint64_t WidthOf(uint32_t code) {
  if (code == 2 || code == 4) return 1;
  if (code == 1 || code == 6 || code == 7) return 2;
  return 4;
}

float ReadElement(const std::string& memory, uint64_t at, uint32_t code) {
  float value = 0;
  int16_t signed16 = 0;
  uint16_t unsigned16 = 0;
  switch (code) {
    case 2:
      return static_cast<float>(static_cast<int8_t>(memory[at]));
    case 4:
      return static_cast<float>(static_cast<uint8_t>(memory[at]));
    case 6:
      std::memcpy(&signed16, memory.data() + at, 2);
      return static_cast<float>(signed16);
    case 1:
    case 7:
      std::memcpy(&unsigned16, memory.data() + at, 2);
      return static_cast<float>(unsigned16);
    default:
      std::memcpy(&value, memory.data() + at, 4);
      return value;
  }
}

int Command::GetOutputWithOutStride(uint64_t index, uint32_t code, std::vector<float>* values) {
  const uint64_t buffer = runtime_.GetDatasetBuffer(outputDataset_, index);
  if (buffer == 0) {
    Say("[ERROR] output[" + TextU(index) + "] dataBuffer nullptr invalid");
    return 1;
  }
  const uint64_t block = runtime_.GetDataBufferAddr(buffer);
  const uint64_t bytes = runtime_.GetDataBufferSize(buffer);
  if (block == 0 || bytes == 0) {
    Say("[ERROR] output[" + TextU(index) + "] data or size(" + TextU(bytes) + ") invalid");
    return 1;
  }
  StrideParam param;
  if (GetOutputStrideParam(index, &param) != 0) {
    Say("[ERROR] Error, GetOutputStrideParam failed");
    return 1;
  }
  const int64_t lastDim = RowOf(param.dims);
  if (lastDim <= 0) {
    Say("[ERROR] Error, dims para invalid");
    return 1;
  }
  const uint64_t elementSize =
      runtime_.DataTypeSize(runtime_.GetDataType(Side::kOutput, index)) / 8;
  if (elementSize == 0) {
    Say("[ERROR] Error, dataSize == 0 invalid");
    return 1;
  }
  const uint64_t rows = param.size / param.stride * batchSize_;
  const uint64_t rowElements = param.stride / elementSize;
  const uint64_t width = WidthOf(code);
  const std::string& memory = runtime_.BytesOf(block);
  for (uint64_t r = 0; r < rows; ++r) {
    for (int64_t k = 0; k < lastDim; ++k) {
      const uint64_t at = (r * rowElements + static_cast<uint64_t>(k)) * width;
      if (at + width > bytes) return 0;  // the end of the block is the end of it all
      values->push_back(ReadElement(memory, at, code));
    }
  }
  return 0;
}

int Command::GetOutputStrideParam(uint64_t index, StrideParam* param) {
  if (runtime_.GetDims(Side::kOutput, index, &param->dims) != 0) {
    Say("[ERROR] vorn_mdl_get_output_dims error!");
    return 1;
  }
  param->stride = runtime_.GetStride(Side::kOutput, index);
  if (param->stride == 0) {
    Say("[ERROR] vorn_mdl_get_output_default_stride error!");
    return 1;
  }
  param->size = runtime_.GetSize(Side::kOutput, index);
  if (param->size == 0) {
    Say("[ERROR] vorn_mdl_get_output_size_by_index error!");
    return 1;
  }
  return 0;
}

}  // namespace

ForetoldRun ModelOfRun(const RunPlan& plan) { return Command(plan).Run(); }

}  // namespace e2e
