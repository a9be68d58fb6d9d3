// Sizes are judged against what a file has to hold, dense rows of all items, and then by what else
// the same number of bytes would be.
#include "kit/launch/checks.h"

#include <algorithm>
#include <limits>
#include <sstream>

#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

constexpr size_t kScratchInputs = 2;
constexpr uint64_t kThresholdKinds = 4;
constexpr uint64_t kMostPathBytes = 4096;
constexpr uint64_t kMostFileBytes = std::numeric_limits<int32_t>::max();
constexpr uint64_t kDumpValueBytes = sizeof(float);

std::string Bytes(uint64_t bytes) {
  return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
}

std::string ShapeOf(const TensorDescription& tensor) {
  return ShapeText(tensor.shape) + " of " + (tensor.type ? TypeName(*tensor.type) : "unknown type");
}

std::optional<uint64_t> Times(std::optional<uint64_t> one, uint64_t other) {
  uint64_t product = 0;
  if (!one || __builtin_mul_overflow(*one, other, &product)) return std::nullopt;
  return product;
}

bool IsRecurrent(const ModelDescription& model) {
  return model.netType == int32_t{VORN_NET_RECURRENT};
}

// Why a file that a line names may not be where vorn-run looks for it.
std::string CauseOf(std::string_view path) {
  constexpr std::string_view kBlanks = " \t";
  if (path.ends_with('\r')) {
    return "; the line ends with a carriage return, which counts: write the list with plain "
           "line ends";
  }
  if (path.starts_with('/')) {
    return "; paths count from the folder of the list, also those that begin with '/'";
  }
  if (path.starts_with('#')) return "; a list has no comments";
  if (path.starts_with('"') || path.starts_with('\'')) {
    return "; quotation marks count: write the path without them";
  }
  if (kBlanks.find(path.front()) != kBlanks.npos) return "; the blank in front of the path counts";
  if (kBlanks.find(path.back()) != kBlanks.npos) return "; the blank behind the path counts";
  if (path.starts_with("~/") || path.find_first_of("*?") != path.npos) {
    return "; '~', '*' and '?' stand for themselves";
  }
  return "";
}

std::string WithCause(const ListedInput& listed, const std::string& fault) {
  return Quoted(listed.file) + " " + fault + (listed.path.empty() ? "" : CauseOf(listed.path));
}

// ---- A byte order mark --------------------------------------------------------------------------

constexpr std::string_view kMark = "\xEF\xBB\xBF";

enum class Mark { kNone, kUtf8, kUtf16 };

// A file whose name begins with one may well be there.
Mark MarkOf(const InputList& list, uint64_t inputs, const FileLook& look) {
  for (uint64_t i = 0; i < std::min(list.Lines(), std::max<uint64_t>(inputs, 1)); ++i) {
    const ListedInput& input = list.Input(i);
    if (input.line != 1) continue;
    const bool isUtf16 =
        (input.text.starts_with("\xFF\xFE") || input.text.starts_with("\xFE\xFF")) &&
        input.text.find('\0') != std::string::npos;
    const bool isMarked = isUtf16 || input.text.starts_with(kMark);
    if (!isMarked || look(input.file).fault.empty()) return Mark::kNone;
    return isUtf16 ? Mark::kUtf16 : Mark::kUtf8;
  }
  return Mark::kNone;
}

Finding FindingOf(Mark mark, const std::string& listPath, const InputList& list) {
  const std::string front = Printable(listPath) + ":1: the list begins with a byte order mark";
  const bool isName = NameInLine(list.SortedBy({}).Input(0).text).has_value();
  return {.status = ExitStatus::kInput,
          .message =
              front +
              (mark == Mark::kUtf16 ? " of UTF-16, whose bytes vorn-run takes as they are"
                                    : std::string(", which vorn-run takes as part of the first ") +
                                          (isName ? "name" : "path")) +
              "; save it as UTF-8 without the mark"};
}

class ListChecker {
 public:
  ListChecker(const CheckRequest& request, const ModelDescription& model, const InputList& list,
              const FileLook& look)
      : request_(request), model_(model), list_(list), look_(look), names_(NamedInputs(model)) {}

  Findings Check() {
    if (model_.inputs.size() <= kScratchInputs) {
      Add(ExitStatus::kModel, "the model tells of " + Counted(model_.inputs.size(), "input") +
                                  ", and a run needs one for data and two buffers");
      return findings_;
    }
    CheckOptions();
    CheckThresholds();
    if (list_.Lines() == 0) {
      Add(ExitStatus::kInput,
          Quoted(request_.listPath) + ": the list is empty; a line for each input file is needed");
      return findings_;
    }
    if (IsNoText()) return findings_;
    CheckCount();
    CheckLines();
    return findings_;
  }

 private:
  // Of a model that was given for a list every line would be told of.
  bool IsNoText() {
    constexpr uint64_t kLooked = 100;
    constexpr uint64_t kLeast = 5;
    constexpr uint64_t kShare = 4;  // one of so many lines
    const uint64_t looked = std::min(list_.Lines(), kLooked);
    uint64_t zeros = 0;
    for (uint64_t i = 0; i < looked; ++i) {
      if (list_.Input(i).text.find('\0') != std::string::npos) ++zeros;
    }
    if (zeros < kLeast || zeros * kShare < looked) return false;
    Add(ExitStatus::kInput, Quoted(request_.listPath) + " is no list: " + std::to_string(zeros) +
                                " of its first " + Counted(looked, "line") +
                                " hold zero bytes, and a list is text with a path in each line");
    return true;
  }

  void Add(ExitStatus status, std::string message) {
    findings_.Add({.status = status, .message = std::move(message)});
  }

  void AddAt(uint64_t line, const std::string& message) {
    Add(ExitStatus::kInput,
        Printable(request_.listPath) + ":" + std::to_string(line) + ": " + message);
  }

  uint64_t PerInference() const { return DataInputs(model_, request_.thresholds.size()); }

  void CheckOptions() {
    if (request_.batch < 1) {
      Add(ExitStatus::kUsage,
          "the batch is " + std::to_string(request_.batch) + ", and has to be 1 at least");
    }
    if (IsRecurrent(model_) && request_.batch > 1) {
      Add(ExitStatus::kUsage,
          "the model is recurrent, and its batch is 1 whatever -b says; leave "
          "out -b " +
              std::to_string(request_.batch));
    }
    if (!request_.totalT) return;
    if (IsRecurrent(model_)) {
      Add(ExitStatus::kDone, "-t " + std::to_string(*request_.totalT) +
                                 " has no effect: the first input's file decides how many frames "
                                 "a sequence has");
    } else {
      Add(ExitStatus::kDone, "-t has no effect: the model is not recurrent");
    }
  }

  // ---- Thresholds -------------------------------------------------------------------------------

  void CheckThresholds() {
    const auto wanted = static_cast<uint64_t>(
        std::count_if(model_.inputs.begin(), model_.inputs.end(),
                      [](const auto& input) { return input.role == TensorRole::kThresholds; }));
    const uint64_t given = request_.thresholds.size();
    if (given == 0 && wanted != 0) {
      Add(ExitStatus::kDone, "without -r the list has to name files for the thresholds, too");
    } else if (given != wanted) {
      Add(ExitStatus::kUsage, "the model takes " + Counted(wanted, "input") +
                                  " of thresholds, and -r names " + Counted(given, "file") +
                                  "; files are separated by commas");
    }
    const TensorDescription& input = model_.inputs[model_.inputs.size() - kScratchInputs - 1];
    for (const auto& thresholds : request_.thresholds) CheckValues(thresholds, input);
  }

  // The shape of the last input before the buffers decides, whichever the file is for.
  void CheckValues(const CheckRequest::Thresholds& thresholds, const TensorDescription& input) {
    const std::string file = "the thresholds " + Quoted(thresholds.path);
    if (!thresholds.fault.empty()) {
      Add(ExitStatus::kInput, file + " " + thresholds.fault);
      return;
    }
    if (input.shape.size() != 2 || input.shape[0] < 0 || input.shape[1] < 0) {
      Add(ExitStatus::kModel, "input " + Quoted(input.name) + " of shape " +
                                  ShapeText(input.shape) + " cannot take thresholds");
      return;
    }
    const auto rows = static_cast<uint64_t>(input.shape[0]);
    const uint64_t values = rows * static_cast<uint64_t>(input.shape[1]);
    if (rows != 1 && rows != kThresholdKinds) {
      Add(ExitStatus::kModel, "input " + Quoted(input.name) + " of shape " +
                                  ShapeText(input.shape) +
                                  " takes thresholds of neither one class nor several");
    } else if (thresholds.values == values + 1) {
      Add(ExitStatus::kInput, file + " is read as " + Counted(thresholds.values, "number") +
                                  " and has " + std::to_string(values) +
                                  ": white space behind the last one counts it twice; take the "
                                  "line end away");
    } else if (thresholds.values != values) {
      Add(ExitStatus::kInput, file + " holds " + Counted(thresholds.values, "number") +
                                  ", and input " + Quoted(input.name) + " (" +
                                  ShapeText(input.shape) + ") takes " + std::to_string(values));
    }
  }

  // ---- Lines ------------------------------------------------------------------------------------

  void CheckCount() {
    const uint64_t each = PerInference();
    if (each == 0 || list_.Lines() % each == 0) return;
    AddAt(list_.LastNumber(), "the list has " + Counted(list_.Lines(), "line") +
                                  ", and an inference takes " + std::to_string(each) + " (" +
                                  InputNames() + "): " + Counted(list_.Lines() % each, "line") +
                                  " at the end would be left out");
  }

  std::string InputNames() const {
    std::string names;
    for (uint64_t i = 0; i < PerInference(); ++i) {
      names += (names.empty() ? "" : ", ") + Quoted(model_.inputs[i].name);
    }
    return names;
  }

  void CheckLines() {
    const uint64_t each = PerInference();
    if (each == 0) {
      Add(ExitStatus::kUsage, "-r names " + Counted(request_.thresholds.size(), "file") +
                                  ", and the model has " +
                                  Counted(model_.inputs.size() - kScratchInputs, "input") +
                                  ": none is left for the list");
    }
    const bool areNamesAlike = list_.LinesNamedRightly() == list_.Lines();
    if (!list_.AreNamesUsed() && areNamesAlike && list_.Lines() % names_.size() != 0) {
      if (each == names_.size()) return;  // it was said that they do not divide
      AddAt(list_.LastNumber(),
            "names are used where the lines divide by all inputs of the model, thresholds "
            "included, and " +
                Counted(list_.Lines(), "line") + " do not divide by " +
                std::to_string(names_.size()) + "; leave out the names");
      return;
    }
    bool areNamesRight = true;
    for (uint64_t place = 0; place < list_.Lines(); ++place) {
      const ListedInput& listed = list_.Input(place);
      const std::string fault = FaultOfName(listed, place);
      if (fault.empty()) continue;
      AddAt(listed.line, fault);
      areNamesRight = false;
    }
    if (each == 0) return;
    uint64_t frames = 0;
    for (uint64_t place = 0; place < list_.Lines(); ++place) {
      const ListedInput& listed = list_.Input(place);
      if (place % each == 0) frames = 0;
      if (!areNamesRight && !FaultOfName(listed, place).empty()) continue;
      // A right name stands before a path until all of them are.
      if (!areNamesRight && !list_.AreNamesUsed() && NameInLine(listed.text)) continue;
      CheckFile(listed, place % each, frames);
    }
  }

  std::string FaultOfName(const ListedInput& listed, uint64_t place) const {
    return list_.AreNamesUsed() ? FaultOfPlace(listed, place) : FaultOfUse(listed);
  }

  // Whoever names inputs names all of them.
  std::string FaultOfUse(const ListedInput& listed) const {
    if (list_.NamedLines() == 0) return "";
    // The odd ones out are the ones to blame.
    const bool areMostNamed = list_.NamedLines() * 2 >= list_.Lines();
    const auto name = NameInLine(listed.text);
    const bool isKnown =
        name && std::find(names_.begin(), names_.end(), std::string(*name)) != names_.end();
    if (name && !isKnown) {
      const std::string meant = DidYouMean(*name, names_);
      return "the model has no input '" + PrintableExcerpt(*name) + "'" +
             (meant.empty() ? "; what stands before the first ':' of a line is a name. A path with "
                              "a ':' needs a link without one"
                            : meant);
    }
    const std::string text = "'" + PrintableExcerpt(listed.text) + "'";
    if (name && !areMostNamed) {
      return text + " names an input, and most lines name none; name one in every line or in none";
    }
    if (!name && areMostNamed) {
      return text + " names no input, and other lines do; name one in every line or in none";
    }
    return "";
  }

  // Sorting puts a name that a group has twice where another belongs.
  std::string FaultOfPlace(const ListedInput& listed, uint64_t place) const {
    const uint64_t each = PerInference();
    if (each == 0) return "";
    const std::string& wanted = model_.inputs[place % each].name;
    if (listed.name == wanted) return "";
    return "inference " + std::to_string(place / each) + " names " +
           Quoted(listed.name.value_or("")) + " where " + Quoted(wanted) +
           " is missing; name each input once";
  }

  // ---- Files ------------------------------------------------------------------------------------

  void CheckFile(const ListedInput& listed, size_t index, uint64_t& frames) {
    const TensorDescription& input = model_.inputs[index];
    if (listed.path.find('\0') != std::string::npos) {
      AddAt(listed.line, "the path holds a zero byte, where it would end");
      return;
    }
    if (listed.file.size() > kMostPathBytes) {
      AddAt(listed.line, "with the list's folder the path has " + Bytes(listed.file.size()) +
                             ", and " + std::to_string(kMostPathBytes) + " are the most");
      return;
    }
    const FileState state = look_(listed.file);
    if (!state.fault.empty()) {
      AddAt(listed.line, WithCause(listed, state.fault));
    } else if (state.sizeBytes == 0) {
      AddAt(listed.line, Quoted(listed.path) + " is empty, and input " + Named(input));
    } else if (state.sizeBytes > kMostFileBytes) {
      AddAt(listed.line, Quoted(listed.path) + " has " + Bytes(state.sizeBytes) +
                             ", and files of 2 GiB and more are not read");
    } else if (IsRecurrent(model_) && index == 0) {
      frames = CheckFrames(listed, input, state.sizeBytes);
    } else if (IsRecurrent(model_) && index == 1) {
      CheckFlags(listed, input, state.sizeBytes, frames);
    } else {
      CheckDense(listed, input, state.sizeBytes);
    }
  }

  // "'picture' takes 784 bytes (1x1x28x28 of uint8)"
  std::string Named(const TensorDescription& input) const {
    const std::optional<uint64_t> bytes = Wanted(input);
    std::string text =
        Quoted(input.name) + " takes " + (bytes ? Bytes(*bytes) : "more") + " (" + ShapeOf(input);
    if (Batch() != 1) text += ", " + std::to_string(Batch()) + " of them";
    return text + ")";
  }

  uint64_t Batch() const {
    return IsRecurrent(model_) ? 1 : static_cast<uint64_t>(std::max<int64_t>(request_.batch, 1));
  }

  std::optional<uint64_t> Wanted(const TensorDescription& input) const {
    return Times(input.DenseBytes(), Batch());
  }

  // A sequence is whole frames, as many as the first dimension at most.
  uint64_t CheckFrames(const ListedInput& listed, const TensorDescription& input, uint64_t size) {
    const std::optional<uint64_t> dense = input.DenseBytes();
    const uint64_t most = input.shape.empty() ? 0 : static_cast<uint64_t>(input.shape.front());
    if (!dense || most == 0 || *dense / most == 0) return 0;
    const uint64_t frame = *dense / most;
    const std::string has = Quoted(listed.path) + " has " + Bytes(size);
    if (size % frame != 0) {
      AddAt(listed.line, has + ", which is no whole number of frames of " + Bytes(frame) +
                             " for input " + Quoted(input.name) + " (" + ShapeOf(input) + ")");
      return 0;
    }
    if (size / frame > most) {
      AddAt(listed.line, has + ", " + Counted(size / frame, "frame") + ", and input " +
                             Quoted(input.name) + " (" + ShapeOf(input) + ") takes " +
                             std::to_string(most) + " at most");
    }
    return size / frame;
  }

  void CheckFlags(const ListedInput& listed, const TensorDescription& input, uint64_t size,
                  uint64_t frames) {
    const std::optional<uint64_t> dense = input.DenseBytes();
    const uint64_t element = input.elementBits.value_or(0) / 8;
    if (!dense || element == 0) return;
    if (size < frames * element) {
      AddAt(listed.line, Quoted(listed.path) + " has flags of " + Counted(size / element, "frame") +
                             ", and the sequence has " + std::to_string(frames) + "; input " +
                             Quoted(input.name) + " needs a flag for each (" + ShapeOf(input) +
                             ")");
    } else if (size > *dense) {
      AddAt(listed.line, Quoted(listed.path) + " has " + Bytes(size) + ", and input " +
                             Named(input) + " at most");
    }
  }

  void CheckDense(const ListedInput& listed, const TensorDescription& input, uint64_t size) {
    const std::optional<uint64_t> wanted = Wanted(input);
    if (!wanted || size == *wanted) return;
    AddAt(listed.line, Quoted(listed.path) + " has " + Bytes(size) + ", and input " + Named(input) +
                           WhatElse(input, size, *wanted));
  }

  // What a file of that many bytes would be, and what vorn-run would make of it.
  std::string WhatElse(const TensorDescription& input, uint64_t size, uint64_t wanted) const {
    const uint64_t dense = input.DenseBytes().value_or(0);
    const uint64_t device = input.deviceBytes.value_or(0);
    const std::optional<uint64_t> padded = Times(input.deviceBytes, Batch());
    std::string text;
    if (padded == size) {
      text = ": as many as its padded rows take, but rows are read dense; take the padding of " +
             std::to_string(input.strideBytes.value_or(0)) + " bytes a row out";
    } else if (dense != 0 && size % dense == 0 && size / dense != Batch()) {
      text = ": that is " + Counted(size / dense, "item") + "; give -b " +
             std::to_string(size / dense) + ", or cut the file";
    } else if (const std::string other = OtherElements(input, size, wanted); !other.empty()) {
      text = other;
    }
    const bool isReset = dense != 0 && size / dense != Batch() && device != 0 && device <= size;
    if (isReset) {
      text += "; the batch would be reset to " + std::to_string(size / device) + " from there on";
    } else if (size < wanted && text.empty()) {
      text = "; the rest would hold what was there before";
    } else if (size > wanted && text.empty()) {
      text = "; the rest would be left out";
    }
    return text;
  }

  static std::string OtherElements(const TensorDescription& input, uint64_t size, uint64_t wanted) {
    const uint64_t element = input.elementBits.value_or(0) / 8;
    if (element == 0) return "";
    for (const uint64_t other : {uint64_t{1}, uint64_t{2}, uint64_t{4}, uint64_t{8}}) {
      if (other == element || wanted / element * other != size) continue;
      return ": as many elements of " + Bytes(other) + " each instead of " +
             std::to_string(element) + "; convert them";
    }
    return "";
  }

  const CheckRequest& request_;
  const ModelDescription& model_;
  const InputList& list_;
  const FileLook& look_;
  const std::vector<std::string> names_;
  Findings findings_;
};

// Bytes of the elements that vorn-run reads an output's rows as.
uint64_t ReadElementBytes(uint32_t type) {
  switch (type) {
    case VORN_INT8:
    case VORN_UINT8:
      return 1;
    case VORN_FLOAT16:
    case VORN_INT16:
    case VORN_UINT16:
      return 2;
    default:
      return sizeof(float);
  }
}

// Characters of a number's line: "0.0000000000000000\n", and at the worst with sign and all digits.
struct TextWidth {
  uint64_t least;
  uint64_t most;
};

TextWidth WidthOf(uint32_t type) {
  constexpr uint64_t kLeast = 19;
  switch (type) {
    case VORN_INT8:
    case VORN_UINT8:
      return {kLeast, kLeast + 3};
    case VORN_FLOAT16:
    case VORN_INT16:
    case VORN_UINT16:
      return {kLeast, kLeast + 5};
    default:
      return {kLeast, 58};  // sign, 39 digits, point, 16 digits, line end
  }
}

}  // namespace

uint64_t DataInputs(const ModelDescription& model, size_t thresholdFiles) {
  const size_t inputs = model.inputs.size();
  const size_t taken = kScratchInputs + thresholdFiles;
  return inputs < taken ? 0 : inputs - taken;
}

std::vector<std::string> NamedInputs(const ModelDescription& model) {
  std::vector<std::string> names;
  for (size_t i = 0; i + kScratchInputs < model.inputs.size(); ++i) {
    names.push_back(model.inputs[i].name);
  }
  return names;
}

Findings CheckList(const CheckRequest& request, const ModelDescription& model,
                   const InputList& list, const FileLook& look) {
  const Mark mark = MarkOf(list, model.inputs.size(), look);
  if (mark == Mark::kNone) return ListChecker(request, model, list, look).Check();
  Findings findings;
  findings.Add(FindingOf(mark, request.listPath, list));
  if (mark == Mark::kUtf16) return findings;
  // What else is wrong is told of the list as it is going to be.
  findings.Add(ListChecker(request, model, list.Without(kMark.size()), look).Check());
  return findings;
}

Findings CheckFilesAlone(const std::string& listPath, const InputList& list, const FileLook& look) {
  Findings findings;
  const Mark mark = MarkOf(list, 1, look);
  if (mark != Mark::kNone) findings.Add(FindingOf(mark, listPath, list));
  if (mark == Mark::kUtf16) return findings;
  if (mark == Mark::kUtf8) {
    findings.Add(CheckFilesAlone(listPath, list.Without(kMark.size()), look));
    return findings;
  }
  for (uint64_t place = 0; place < list.Lines(); ++place) {
    const ListedInput& input = list.Input(place);
    // What stands before a ':' may be a name or not.
    if (input.path.empty() || NameInLine(input.file)) continue;
    const FileState state = look(input.file);
    if (state.fault.empty()) continue;
    findings.Add({.status = ExitStatus::kInput,
                  .message = Printable(listPath) + ":" + std::to_string(input.line) + ": " +
                             WithCause(input, state.fault)});
  }
  return findings;
}

uint64_t DumpValues(const TensorDescription& output, uint64_t batch) {
  const uint64_t stride = output.strideBytes.value_or(0);
  const uint64_t device = output.deviceBytes.value_or(0);
  const uint64_t element = output.elementBits.value_or(0) / 8;
  if (stride == 0 || element == 0 || output.shape.empty() || output.shape.back() <= 0) return 0;
  const uint64_t rows = device / stride * batch;
  const uint64_t rowElements = stride / element;
  const auto last = static_cast<uint64_t>(output.shape.back());
  const uint64_t there = device * batch / ReadElementBytes(output.type.value_or(0));
  if (rows == 0) return 0;
  if (there < last) return there;
  if (rowElements == 0) return rows * last;
  const uint64_t whole = (there - last) / rowElements + 1;
  if (whole >= rows) return rows * last;
  const uint64_t next = whole * rowElements;
  return whole * last + (next < there ? there - next : 0);
}

DumpSize SizeOfDumps(const ModelDescription& model, uint64_t batch, bool isTextKept) {
  DumpSize size;
  for (const TensorDescription& output : model.outputs) {
    const uint64_t values = DumpValues(output, batch);
    const TextWidth width = WidthOf(output.type.value_or(0));
    size.leastBytes += values * (kDumpValueBytes + (isTextKept ? width.least : 0));
    size.mostBytes += values * (kDumpValueBytes + (isTextKept ? width.most : 0));
  }
  return size;
}

std::optional<uint64_t> CountThresholds(const std::string& text) {
  std::istringstream stream(text);
  uint64_t count = 0;
  float value = 0.0F;
  while (!stream.eof()) {
    if (stream.fail()) return std::nullopt;
    stream >> value;
    ++count;
  }
  return count;
}

}  // namespace vorn::kit
