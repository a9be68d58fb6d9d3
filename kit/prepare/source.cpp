#include "kit/prepare/source.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <map>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/folder_names.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/picture/decode.h"
#include "kit/prepare/number_text.h"
#include "kit/prepare/wav.h"
#include "kit/tensor/array.h"
#include "kit/tensor/npy.h"
#include "kit/tensor/npz.h"
#include "kit/tensor/onnx_tensor.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr size_t kHeadBytes = 64;
constexpr uint64_t kMostTextBytes = uint64_t{1} << 30;
constexpr size_t kMostNamed = 5;
constexpr std::string_view kNpyMagic = "\x93NUMPY";
constexpr std::string_view kZipMagic = "PK\x03\x04";
constexpr std::string_view kTestSet = "test_data_set_";

[[noreturn]] void RefuseSource(const std::string& path, const std::string& reason) {
  throw Fault(ExitStatus::kInput, Quoted(path) + " " + reason);
}

std::string TakesOf(const InputPlan& plan) {
  return "the input " + Quoted(plan.input.name) + " takes " + ShapeText(plan.input.shape) + " of " +
         std::string(ElementName(plan.Type())) + ", " + std::to_string(plan.ItemBytes()) + " bytes";
}

// ---- Shapes -------------------------------------------------------------------------------------

Shape WithoutOnes(const Shape& shape) {
  Shape rest = shape;
  while (rest.size() > 1 && rest.front() == 1) rest.erase(rest.begin());
  return rest;
}

Shape ShapeOfInput(const InputPlan& plan) {
  Shape shape;
  for (const int64_t size : plan.input.shape) shape.push_back(static_cast<uint64_t>(size));
  return shape;
}

bool IsOneItem(const Shape& shape, const InputPlan& plan) {
  const Shape input = ShapeOfInput(plan);
  const auto has = CountElements(shape);
  const auto takes = CountElements(input);
  if (!has || !takes) return false;
  if (plan.isSequence && shape.size() >= 2 && input.size() >= 2) {
    // Frames, as many as there are.
    return shape.front() >= 1 && shape.front() <= input.front() &&
           *has / shape.front() == *takes / input.front() &&
           std::equal(shape.begin() + 1, shape.end(), input.begin() + 1, input.end());
  }
  if (*has != *takes) return false;
  return shape.size() <= 1 || WithoutOnes(shape) == WithoutOnes(input);
}

bool LooksLikePicture(const Shape& shape) {
  return shape.size() == 2 || (shape.size() == 3 && shape.back() >= 1 && shape.back() <= 4);
}

// ---- Files --------------------------------------------------------------------------------------

SourceItem FaultyItem(const std::string& path, std::string fault) {
  SourceItem item;
  item.path = path;
  item.fault = std::move(fault);
  return item;
}

SourceItem ItemOf(SourceKind kind, const std::string& path,
                  const std::optional<uint64_t>& item = std::nullopt,
                  const std::string& array = {}) {
  SourceItem made;
  made.kind = kind;
  made.path = path;
  made.array = array;
  made.item = item;
  return made;
}

// Tokens, embeddings or frames of a sequence: the same but for one size, which is how many there
// are.
std::string HintOfLength(const Shape& shape, const Shape& input) {
  const Shape has = WithoutOnes(shape);
  const Shape takes = WithoutOnes(input);
  if (has.size() != takes.size() || takes.size() < 2) return "";
  std::optional<size_t> other;
  for (size_t i = 0; i < has.size(); ++i) {
    if (has[i] == takes[i]) continue;
    if (other) return "";
    other = i;
  }
  if (!other) return "";
  return "; a sequence of " + std::to_string(has[*other]) + " has to " +
         (has[*other] < takes[*other] ? "be filled up to " : "be cut to ") +
         std::to_string(takes[*other]) +
         ", or the model be opened for that many, where its configuration can say so (\"dims\")";
}

// Items that lie one behind the other. A file with holes may tell of any number of them.
void AddEach(SourceKind kind, uint64_t count, const std::string& path, const std::string& array,
             std::vector<SourceItem>& items) {
  if (count > kMostSamples) {
    items.push_back(FaultyItem(path, "holds " + std::to_string(count) + " items, and " +
                                         std::to_string(kMostSamples) +
                                         " are taken at most; cut it into pieces"));
    return;
  }
  for (uint64_t i = 0; i < count; ++i) items.push_back(ItemOf(kind, path, i, array));
}

void AddItems(SourceKind kind, const Shape& shape, ElementType type, const std::string& path,
              const std::string& array, const InputPlan& plan, std::vector<SourceItem>& items) {
  switch (FitOf(shape, plan)) {
    case ArrayFit::kWhole:
    case ArrayFit::kPicture:
      items.push_back(ItemOf(kind, path, std::nullopt, array));
      return;
    case ArrayFit::kStack:
    case ArrayFit::kPictures:
      AddEach(kind, shape.front(), path, array, items);
      return;
    case ArrayFit::kNone:
      break;
  }
  const bool wantsPicture = plan.recipe && plan.recipe->NeedsPicture();
  const std::string hint = wantsPicture ? "" : HintOfLength(shape, ShapeOfInput(plan));
  items.push_back(FaultyItem(
      path,
      "the array is " + TextOf(shape) + " of " + std::string(ElementName(type)) + ", and " +
          (wantsPicture ? "the recipe takes [height, width, channels], or several of them in front"
                        : TakesOf(plan) + ", or several such items in front") +
          hint));
}

void AddArray(const StoredTensor& tensor, const std::string& path, const std::string& array,
              const InputPlan& plan, std::vector<SourceItem>& items) {
  AddItems(SourceKind::kArray, tensor.shape.value_or(Shape{tensor.elements}), tensor.type, path,
           array, plan, items);
}

void AddArchive(const std::string& path, const InputPlan& plan, std::vector<SourceItem>& items) {
  const ArrayArchive archive(path);
  const std::vector<std::string> names = archive.Names();
  std::string name = plan.part.value_or(plan.input.name);
  if (!plan.part && names.size() == 1) name = names.front();
  if (std::find(names.begin(), names.end(), name) == names.end()) {
    std::string list;
    for (const std::string& one : names) list += (list.empty() ? "" : ", ") + Printable(one);
    items.push_back(FaultyItem(path, "the archive has no array " + Quoted(name) +
                                         DidYouMean(name, names) + "; it has " + list +
                                         ". Name one with \"part\" in a job"));
    return;
  }
  AddArray(archive.Open(name), path, name, plan, items);
}

void AddRaw(const std::string& path, uint64_t bytes, const InputPlan& plan,
            std::vector<SourceItem>& items) {
  const uint64_t takes = plan.ItemBytes();
  if (bytes == takes) {
    items.push_back(ItemOf(SourceKind::kRaw, path));
    return;
  }
  if (plan.isSequence && plan.input.shape.size() >= 2 && plan.input.shape.front() > 0) {
    const uint64_t frame = takes / static_cast<uint64_t>(plan.input.shape.front());
    if (frame > 0 && bytes > 0 && bytes < takes && bytes % frame == 0) {
      items.push_back(ItemOf(SourceKind::kRaw, path));
      return;
    }
  }
  if (takes > 0 && bytes > 0 && bytes % takes == 0) {
    AddEach(SourceKind::kRaw, bytes / takes, path, "", items);
    return;
  }
  items.push_back(FaultyItem(path,
                             "is no picture and no array that is known, and as raw values it "
                             "has " +
                                 std::to_string(bytes) + " bytes; " + TakesOf(plan)));
}

bool HasPictureEnding(const std::string& path) {
  std::string ending = fs::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  constexpr std::array<std::string_view, 12> kEndings{".wav",  ".jpg", ".jpeg", ".png",
                                                      ".webp", ".tif", ".tiff", ".bmp",
                                                      ".ppm",  ".pgm", ".npy",  ".npz"};
  return std::find(kEndings.begin(), kEndings.end(), ending) != kEndings.end();
}

bool IsOnnxTensor(const std::string& path) {
  try {
    (void)OpenOnnxTensor(path);
    return true;
  } catch (const Fault&) {
    return false;
  }
}

// Whether it may be a text of numbers: nothing else is in its beginning but remarks.
bool LooksLikeNumbers(const std::string& head) {
  bool isRemark = false;
  bool hasDigit = false;
  for (const char c : head) {
    isRemark = c == '#' || (isRemark && c != '\n');
    const bool isText = std::isprint(static_cast<unsigned char>(c)) != 0 ||
                        std::isspace(static_cast<unsigned char>(c)) != 0 ||
                        static_cast<unsigned char>(c) >= 0x80;
    if (isRemark && !isText) return false;
    if (isRemark) continue;
    const bool isDigit = c >= '0' && c <= '9';
    if (!isDigit && std::string_view(" \t\r\n+-.,;eExXpPaAbBcCdDfFnNiItTyY").find(c) ==
                        std::string_view::npos) {
      return false;
    }
    hasDigit = hasDigit || isDigit;
  }
  return hasDigit || (isRemark && !head.empty());
}

void AddSignal(const std::string& path, const InputPlan& plan, std::vector<SourceItem>& items,
               std::string& rateRemark) {
  const Frames frames = ReadFrames(path, plan);
  if (frames.rate != 0 && !plan.signal->rate && rateRemark.empty()) {
    rateRemark = "the sound " + Quoted(path) + " has " + std::to_string(frames.rate) +
                 " samples a second, and no \"rate\" of \"signal\" says how many the model was "
                 "made for";
  }
  if (!plan.isSequence) {
    AddItems(SourceKind::kSignal, {frames.count, frames.window}, ElementType::kFloat32, path, "",
             plan, items);
    return;
  }
  if (frames.window * ElementBytes(plan.Type()) != plan.FrameBytes()) {
    items.push_back(FaultyItem(path, "a window of " + std::to_string(frames.window) +
                                         " samples is no frame: " + TakesOf(plan)));
    return;
  }
  const size_t sequences = SplitIntoSequences(frames.count, plan.MostFrames()).size();
  AddEach(SourceKind::kSignal, sequences, path, "", items);
}

// What this verb has left beside tensors; their bytes are none, though the count of them may fit.
bool IsOfPreparation(const fs::path& path) {
  if (path.filename() != "list.txt" && path.filename() != "manifest.json") return false;
  std::error_code error;
  const fs::path folder = path.parent_path();
  return fs::exists(folder / "manifest.json", error) && fs::is_directory(folder / "tensors", error);
}

// Whatever the file is. `isAsked` for one that was named, and does not only lie in a folder.
void AddFile(const std::string& path, const InputPlan& plan, bool isAsked, FoundSource& found,
             std::vector<std::string>& passedOver) {
  try {
    const FileHead head = ReadFileHead(path, "the file", kHeadBytes);
    if (IsOfPreparation(path)) {
      if (isAsked) {
        RefuseSource(path, "tells of tensors that vorn prepare has made; give their folder " +
                               Quoted((fs::path(path).parent_path() / "tensors").string()) +
                               " as the source, or the list as it is to vorn launch -i");
      }
      passedOver.push_back(fs::path(path).filename().string());
    } else if (plan.signal) {
      AddSignal(path, plan, found.items, found.rateRemark);
    } else if (IsWav(head.bytes)) {
      RefuseSource(path, "is a sound, and nothing says how it becomes frames: " + TakesOf(plan) +
                             "; give \"signal\": {\"window\", \"hop\"} in a job");
    } else if (FormatOf(head.bytes)) {
      if (!plan.recipe) {
        RefuseSource(path,
                     "is a picture, and no recipe says how it becomes a tensor: " + TakesOf(plan) +
                         "; give --recipe, vorn prepare --recipes lists those that are ready");
      }
      found.items.push_back(ItemOf(SourceKind::kPicture, path));
    } else if (head.bytes.starts_with(kNpyMagic)) {
      AddArray(OpenNpy(path), path, "", plan, found.items);
    } else if (head.bytes.starts_with(kZipMagic)) {
      AddArchive(path, plan, found.items);
    } else if (head.fileBytes == plan.ItemBytes()) {
      found.items.push_back(ItemOf(SourceKind::kRaw, path));
    } else if (path.ends_with(".pb") && IsOnnxTensor(path)) {
      AddArray(OpenOnnxTensor(path), path, "", plan, found.items);
    } else if (LooksLikeNumbers(head.bytes)) {
      const Array numbers = ReadNumberText(path, kMostTextBytes);
      AddItems(SourceKind::kNumbers, numbers.shape, numbers.type, path, "", plan, found.items);
    } else if (isAsked || HasPictureEnding(path) || path.ends_with(".bin")) {
      AddRaw(path, head.fileBytes, plan, found.items);
    } else {
      passedOver.push_back(fs::path(path).filename().string());
    }
  } catch (const Fault& fault) {
    if (fault.Status() != ExitStatus::kInput || isAsked) throw;
    found.items.push_back(FaultyItem(path, fault.what()));
  }
}

// ---- Folders ------------------------------------------------------------------------------------

struct FilesInFolder {
  std::vector<std::string> files;
  std::vector<std::string> others;  ///< neither file nor folder: links to nothing, pipes, devices
};

FilesInFolder FilesBelow(const std::string& folder) {
  FilesInFolder found;
  std::error_code error;
  std::string last = folder;
  fs::recursive_directory_iterator at(folder, error);
  while (!error && at != fs::recursive_directory_iterator()) {
    last = at->path().string();
    std::error_code ignored;
    const bool isHidden = at->path().filename().string().starts_with('.');
    if (at->is_directory(ignored)) {
      if (isHidden) at.disable_recursion_pending();
    } else if (!isHidden) {
      (at->is_regular_file(ignored) ? found.files : found.others).push_back(last);
    }
    at.increment(error);
  }
  // With an error it stands at the end, and what would have come is not known.
  if (error) RefuseSource(last, "cannot be listed: " + error.message());
  std::sort(found.files.begin(), found.files.end());
  std::sort(found.others.begin(), found.others.end());
  return found;
}

std::optional<uint64_t> NumberBehind(const std::string& name, std::string_view front,
                                     std::string_view ending) {
  if (!name.starts_with(front) || !name.ends_with(ending)) return std::nullopt;
  const char* begin = name.data() + front.size();
  const char* end = name.data() + name.size() - ending.size();
  uint64_t number = 0;
  const auto [stop, error] = std::from_chars(begin, end, number);
  if (begin >= end || error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

// The file of this input in one test folder: by the name in it, else by its place.
std::string TestFileOf(const std::string& folder, const InputPlan& plan) {
  std::string byPlace;
  for (const std::string& name : NamesIn(folder)) {
    const auto number = NumberBehind(name, "input_", ".pb");
    if (!number) continue;
    std::string path = folder + "/" + name;
    if (OpenOnnxTensor(path).name == plan.input.name) return path;
    if (*number == plan.place) byPlace = path;
  }
  return byPlace;
}

bool IsTestFolder(const std::string& folder) {
  const std::vector<std::string> names = NamesIn(folder);
  return std::any_of(names.begin(), names.end(), [](const std::string& name) {
    return NumberBehind(name, "input_", ".pb").has_value();
  });
}

std::vector<std::string> TestFolders(const std::string& folder) {
  std::map<uint64_t, std::string> byNumber;
  for (const std::string& name : NamesIn(folder)) {
    if (const auto number = NumberBehind(name, kTestSet, "")) {
      byNumber[*number] = folder + "/" + name;
    }
  }
  std::vector<std::string> folders;
  for (const auto& [number, path] : byNumber) folders.push_back(path);
  if (folders.empty() && IsTestFolder(folder)) folders.push_back(folder);
  return folders;
}

FoundSource FromTestFolders(const std::vector<std::string>& folders, const InputPlan& plan) {
  FoundSource found;
  for (const std::string& folder : folders) {
    const std::string path = TestFileOf(folder, plan);
    if (path.empty()) {
      found.items.push_back(FaultyItem(folder, "holds no tensor of the input " +
                                                   Quoted(plan.input.name) + ", and no input_" +
                                                   std::to_string(plan.place) + ".pb"));
      continue;
    }
    // One that was made for the model is one item, whatever it could be cut into.
    AddArray(OpenOnnxTensor(path), path, "", plan, found.items);
  }
  return found;
}

FoundSource FromRun(const std::string& folder, const InputPlan& plan) {
  const TensorSource source = FindTensors(folder);
  FoundSource found;
  if (!source.unfinished.empty()) found.remarks.push_back(source.unfinished);
  for (const SampleSource& sample : source.samples) {
    const std::string told =
        "sample " + std::to_string(sample.index) + " of the run " + Quoted(folder);
    if (!sample.absence.empty()) {
      found.items.push_back(FaultyItem(told, sample.absence));
      continue;
    }
    const std::string name = SpelledAsDump(plan.part.value_or(plan.input.name));
    const OutputPlace* place = nullptr;
    for (const OutputPlace& output : sample.outputs) {
      if (output.name == name || (!plan.part && sample.outputs.size() == 1)) place = &output;
    }
    if (place == nullptr) {
      std::string list;
      for (const OutputPlace& output : sample.outputs) {
        list += (list.empty() ? "" : ", ") + Printable(output.name);
      }
      RefuseSource(folder, "has no output " + Quoted(name) + "; it has " + list +
                               ". Name one with \"part\" in a job");
    }
    AddArray(OpenTensor(place->path), place->path, "", plan, found.items);
  }
  return found;
}

FoundSource FromFolder(const std::string& folder, const InputPlan& plan) {
  if (fs::exists(folder + "/run.json")) return FromRun(folder, plan);
  const std::vector<std::string> tests = TestFolders(folder);
  if (!tests.empty()) return FromTestFolders(tests, plan);
  FoundSource found;
  std::vector<std::string> passedOver;
  const FilesInFolder below = FilesBelow(folder);
  for (const std::string& file : below.files) {
    AddFile(file, plan, false, found, passedOver);
  }
  for (const std::string& other : below.others) {
    passedOver.push_back(fs::path(other).filename().string());
  }
  if (!passedOver.empty()) {
    std::string names;
    for (size_t i = 0; i < std::min(passedOver.size(), kMostNamed); ++i) {
      names += (i == 0 ? "" : ", ") + Printable(passedOver[i]);
    }
    if (passedOver.size() > kMostNamed) names += ", …";
    found.remarks.push_back(Counted(passedOver.size(), "file") + " in " + Quoted(folder) +
                            (passedOver.size() == 1 ? " is" : " are") +
                            " no picture and no array, and passed over: " + names);
  }
  if (found.items.empty()) {
    RefuseSource(folder,
                 "holds no pictures, no arrays (.npy, .npz), no test_data_set_* folders and "
                 "no run; " +
                     TakesOf(plan));
  }
  return found;
}

}  // namespace

std::string SourceItem::Name() const {
  std::string name = path;
  if (!array.empty()) name += ", array " + Quoted(array);
  if (item) name += ", item " + std::to_string(*item);
  return name;
}

uint64_t InputPlan::ItemBytes() const { return input.DenseBytes().value_or(0); }

uint64_t InputPlan::MostFrames() const {
  return input.shape.empty() ? 1 : static_cast<uint64_t>(std::max<int64_t>(input.shape.front(), 1));
}

uint64_t InputPlan::FrameBytes() const {
  const uint64_t bytes = ItemBytes() / MostFrames();
  return bytes > 0 ? bytes : 1;  // of a description that tells no size nothing is divided by 0
}

ElementType InputPlan::Type() const {
  return (input.type ? ElementOfCode(*input.type) : std::nullopt).value_or(ElementType::kFloat32);
}

ArrayFit FitOf(const Shape& shape, const InputPlan& plan) {
  const bool needsPicture = plan.recipe && plan.recipe->NeedsPicture();
  const Shape item = shape.empty() ? Shape{} : Shape(shape.begin() + 1, shape.end());
  if (!needsPicture) {
    if (IsOneItem(shape, plan)) return ArrayFit::kWhole;
    if (!shape.empty() && shape.front() > 0 && !item.empty() && IsOneItem(item, plan)) {
      return ArrayFit::kStack;
    }
  }
  if (!plan.recipe) return ArrayFit::kNone;
  if (LooksLikePicture(shape)) return ArrayFit::kPicture;
  return LooksLikePicture(item) && shape.size() == item.size() + 1 ? ArrayFit::kPictures
                                                                   : ArrayFit::kNone;
}

Frames ReadFrames(const std::string& path, const InputPlan& plan) {
  const FileHead head = ReadFileHead(path, "the signal", kHeadBytes);
  if (head.bytes.starts_with(kNpyMagic)) {
    const Array array = ReadArray(OpenNpy(path), kMostTextBytes);
    const Signal signal =
        SignalOf(array, *plan.signal, "the array " + Quoted(path), kMostTextBytes);
    return CutIntoFrames(signal, *plan.signal, Quoted(path), kMostTextBytes);
  }
  SignalSource source;
  if (IsWav(head.bytes)) {
    source = OpenWav(path);
  } else if (plan.rawSignal) {
    try {
      source = OpenRawSignal(path, *plan.rawSignal);
    } catch (const JsonError& error) {
      throw Fault(ExitStatus::kInput, "the job's \"raw\": " + std::string(error.what()));
    }
  } else {
    RefuseSource(path,
                 "is no sound (WAV) and no array (.npy); of raw samples say the type, "
                 "\"raw\": {\"type\": \"int16\"}");
  }
  const Signal signal = ReadSignal(source, *plan.signal, kMostTextBytes);
  Frames frames = CutIntoFrames(signal, *plan.signal, Quoted(path), kMostTextBytes);
  frames.rate = source.rate;
  return frames;
}

FoundSource FindListed(const std::vector<ListedSource>& sources, const InputPlan& plan) {
  FoundSource found;
  // A stack of thousands is looked into once, not once an item.
  std::map<std::pair<std::string, std::string>, std::vector<SourceItem>> known;
  for (const ListedSource& source : sources) {
    const std::pair key(source.path, source.part.value_or(""));
    auto at = known.find(key);
    if (at == known.end()) {
      InputPlan own = plan;
      if (source.part) own.part = source.part;
      std::vector<SourceItem> items;
      try {
        items = FindSource(source.path, own).items;
      } catch (const Fault& fault) {
        if (fault.Status() != ExitStatus::kInput) throw;
        items.push_back(FaultyItem(source.path, fault.what()));
      }
      at = known.emplace(key, std::move(items)).first;
    }
    const std::vector<SourceItem>& items = at->second;
    if (!source.item || (items.size() == 1 && !items.front().fault.empty())) {
      found.items.insert(found.items.end(), items.begin(), items.end());
      continue;
    }
    const bool isStack = !items.empty() && items.front().item.has_value();
    if (isStack && *source.item < items.size()) {
      found.items.push_back(items[*source.item]);
    } else {
      found.items.push_back(FaultyItem(
          source.path, Quoted(source.path) + " has no item " + std::to_string(*source.item) +
                           (isStack ? ": it holds " + std::to_string(items.size())
                                    : ": it is one item as a whole")));
    }
  }
  return found;
}

FoundSource FindSource(const std::string& path, const InputPlan& plan) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) RefuseSource(path, "is not there");
  std::string folder = path;
  while (folder.size() > 1 && folder.ends_with('/')) folder.pop_back();
  if (fs::is_directory(status)) return FromFolder(folder, plan);
  FoundSource found;
  std::vector<std::string> passedOver;
  AddFile(path, plan, true, found, passedOver);
  return found;
}

}  // namespace vorn::kit
