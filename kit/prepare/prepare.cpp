#include "kit/prepare/prepare.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_lock.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/picture/decode.h"
#include "kit/prepare/item_maker.h"
#include "kit/prepare/picture_tensor.h"
#include "kit/prepare/room.h"
#include "kit/prepare/source.h"
#include "kit/prepare/stored_value.h"
#include "kit/prepare/thresholds.h"
#include "kit/prepare/workers.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr size_t kMostNamedFaults = 100;
constexpr size_t kLeastDigits = 6;
constexpr size_t kMostKeptBytes = size_t{64} << 20;  // of a file, as room for the next one
constexpr size_t kHashedBytes = size_t{256} << 10;   // of a tensor, hashed and written
constexpr std::string_view kCannotWrite = "cannot write the tensor";

// ---- The folder ---------------------------------------------------------------------------------

const std::string& MadeFolder(const std::string& path) {
  std::error_code error;
  fs::create_directories(path, error);
  if (!error) return path;
  throw Fault(ExitStatus::kLimit,
              "the folder " + Quoted(path) + " cannot be made: " + error.message());
}

class PreparedFolder {
 public:
  PreparedFolder(const std::string& path, bool isResumed)
      : path_(MadeFolder(path)), lock_(path, "prepare") {
    CheckWhatIsThere(isResumed);
    std::error_code error;
    for (const char* folder : {kTensorsFolder, kItemsFolder}) {
      // A link would lead to files that nobody named.
      if (fs::is_symlink(Path(folder))) {
        throw Fault(ExitStatus::kUsage, Quoted(Path(folder)) + " is a link; remove it");
      }
      fs::create_directories(Path(folder), error);
      if (error) {
        throw Fault(ExitStatus::kLimit,
                    "the folder " + Quoted(Path(folder)) + " cannot be made: " + error.message());
      }
    }
  }

  [[nodiscard]] std::string Path(const std::string& name) const { return path_ + "/" + name; }

  // Until the files are where a loss of power leaves them.
  void Sync() const {
    const int fd = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    (void)syncfs(fd);
    close(fd);
  }

 private:
  // What is left where an earlier one was refused before a tensor was made.
  static bool IsNothing(const fs::directory_entry& entry) {
    const std::string name = entry.path().filename().string();
    if (name == kFolderLockFile) return true;
    std::error_code error;
    const bool isFolder = name == kTensorsFolder || name == kItemsFolder;
    if (!isFolder && name != kPreparedNotes) return false;
    return !entry.is_symlink(error) && fs::is_empty(entry.path(), error) && !error;
  }

  void CheckWhatIsThere(bool isResumed) {
    const bool isOurs = fs::exists(Path(kManifestFile)) || fs::exists(Path(kPreparedNotes));
    if (isResumed) return;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(path_, error)) {
      const std::string name = entry.path().filename().string();
      if (IsNothing(entry)) continue;
      throw Fault(ExitStatus::kUsage,
                  "the folder " + Quoted(path_) +
                      (isOurs ? " was prepared before; --resume makes again only what changed"
                              : " is not empty (" + Quoted(name) + "); give another one"));
    }
  }

  std::string path_;
  FolderLock lock_;
};

std::string AdviceFor(int error) {
  switch (error) {
    case ENOSPC:
    case EDQUOT:
      return "; make room";
    case EISDIR:
    case ENOTEMPTY:
      return "; remove that folder";
    default:
      return "; see to that";
  }
}

// Whole or not at all, and synced with all others at the end. Returns the hash: each piece is
// hashed and written while it is in the processor's cache.
std::string WriteTensor(const std::string& path, std::span<const std::byte> bytes) {
  const std::string part = path + "." + std::to_string(getpid()) + std::string(kUnfinishedSuffix);
  OwnedFile file = OpenUnfinished(part);
  int error = file.IsOpen() ? 0 : errno;
  Xxh3Stream hash;
  size_t hashed = 0;
  size_t done = 0;
  while (error == 0 && done < bytes.size()) {
    if (done == hashed) {
      hashed = std::min(bytes.size(), done + kHashedBytes);
      hash.Add({reinterpret_cast<const char*>(bytes.data()) + done, hashed - done});
    }
    const ssize_t written = write(file.Get(), bytes.data() + done, hashed - done);
    if (written < 0 && errno != EINTR) error = errno;
    if (written > 0) done += static_cast<size_t>(written);
  }
  if (!file.Close() && error == 0) error = errno;
  if (error == 0 && rename(part.c_str(), path.c_str()) != 0) error = errno;
  if (error == 0) return hash.Digits();
  (void)unlink(part.c_str());
  throw Fault(ExitStatus::kLimit, std::string(kCannotWrite) + " " + Quoted(path) + ": " +
                                      SystemReason(error) + AdviceFor(error));
}

// ---- What is to be done -------------------------------------------------------------------------

struct PlannedInput {
  InputPlan plan;
  std::string source;
  std::string signal;         ///< what was asked for of it
  std::optional<Json> asked;  ///< the same of a signal, as it was written
  FoundSource found;
};

std::string NumberText(uint64_t number, uint64_t all) {
  const size_t digits = std::max(kLeastDigits, std::to_string(all > 0 ? all - 1 : 0).size());
  std::string text = std::to_string(number);
  return std::string(digits - std::min(digits, text.size()), '0') + text;
}

std::string NamesOf(const std::vector<TensorDescription>& inputs) {
  std::string names;
  for (const TensorDescription& input : inputs) {
    names += (names.empty() ? "" : ", ") + Printable(input.name);
  }
  return names;
}

const InputRequest* RequestFor(const PrepareRequest& request, const TensorDescription& input,
                               bool areFlags) {
  for (const InputRequest& one : request.inputs) {
    if (one.name == input.name) return &one;
  }
  if (areFlags) return nullptr;
  throw Fault(ExitStatus::kUsage, "nothing is given for the input " + Quoted(input.name) +
                                      ", which takes " + ShapeText(input.shape) + " of " +
                                      TypeName(input.type.value_or(0)) + "; give --input " +
                                      Printable(input.name) + "=SOURCE");
}

void CheckNames(const PrepareRequest& request, const std::vector<TensorDescription>& inputs) {
  std::vector<std::string> known;
  for (const TensorDescription& input : inputs) known.push_back(input.name);
  for (const InputRequest& one : request.inputs) {
    if (std::find(known.begin(), known.end(), one.name) != known.end()) continue;
    throw Fault(ExitStatus::kUsage, "the model has no input " + Quoted(one.name) +
                                        DidYouMean(one.name, known) + "; it takes " +
                                        NamesOf(inputs));
  }
}

void CheckPlan(const InputPlan& plan) {
  if (!plan.input.DenseBytes() || plan.ItemBytes() == 0) {
    throw Fault(ExitStatus::kModel, "the description does not tell how many bytes the input " +
                                        Quoted(plan.input.name) + " takes");
  }
  if (!plan.recipe || !plan.recipe->NeedsPicture()) return;
  const PictureTarget target = TargetOf(plan.input, *plan.recipe);
  const std::string reason = WhyNotStored(*plan.recipe, target.type);
  if (reason.empty()) return;
  throw Fault(ExitStatus::kInput, "the recipe " + Quoted(plan.recipe->name) +
                                      " does not fit the input " + Quoted(plan.input.name) + ": " +
                                      reason);
}

std::vector<PlannedInput> PlanInputs(const PrepareRequest& request) {
  const std::vector<TensorDescription> inputs = FileInputs(request.model);
  if (inputs.empty()) throw Fault(ExitStatus::kModel, "the model takes no files");
  CheckNames(request, inputs);
  const bool isRecurrent = request.model.netType == int32_t{VORN_NET_RECURRENT};
  std::vector<PlannedInput> planned;
  for (size_t place = 0; place < inputs.size(); ++place) {
    // The second input of a recurrent model takes its flags.
    const InputRequest* one = RequestFor(request, inputs[place], isRecurrent && place == 1);
    PlannedInput input;
    input.plan.input = inputs[place];
    input.plan.place = place;
    input.plan.isSequence = isRecurrent && place <= 1;
    input.plan.areFlags = one == nullptr;
    if (one != nullptr) {
      input.plan.recipe = one->recipe;
      input.plan.part = one->part;
      input.plan.signal = one->signal;
      input.plan.rawSignal = one->rawSignal;
      input.plan.random = one->random;
      input.source = one->source;
      input.signal = one->signalText;
      input.asked = one->signalJson;
    }
    CheckPlan(input.plan);
    if (one != nullptr && !one->listed.empty()) {
      input.found = FindListed(one->listed, input.plan);
    } else if (!input.plan.IsEndless()) {
      input.found = FindSource(input.source, input.plan);
    }
    planned.push_back(std::move(input));
  }
  return planned;
}

// As many as all inputs have; of one item there may be as many as the others have.
uint64_t CountSamples(const std::vector<PlannedInput>& inputs,
                      const std::optional<uint64_t>& count) {
  if (std::all_of(inputs.begin(), inputs.end(),
                  [](const PlannedInput& input) { return input.plan.IsEndless(); })) {
    return count.value_or(1);
  }
  if (count) {
    throw Fault(ExitStatus::kUsage,
                "a count is for random numbers alone; the sources tell how many samples there are, "
                "and --most takes the first ones");
  }
  uint64_t samples = 1;
  const PlannedInput* decides = nullptr;
  for (const PlannedInput& input : inputs) {
    const uint64_t items = input.found.items.size();
    if (items == 1 || input.plan.IsEndless()) continue;
    if (decides != nullptr && items != samples) {
      throw Fault(ExitStatus::kInput,
                  "the input " + Quoted(decides->plan.input.name) + " has " +
                      Counted(samples, "item") + ", and " + Quoted(input.plan.input.name) +
                      " has " + std::to_string(items) + "; each sample takes one of each");
    }
    samples = items;
    decides = &input;
  }
  return samples;
}

// What is made replaces what was made before.
void CheckDisk(const std::string& folder, std::span<const FilesToMake> files) {
  std::optional<Room> room = RoomAt(folder);
  if (!room) return;
  for (const char* name : {kTensorsFolder, kItemsFolder}) {
    const Room taken = TakenIn(folder + "/" + name);
    room->bytes += taken.bytes;
    if (room->files) *room->files += taken.files.value_or(0);
  }
  const std::string reason = WhyNoRoom(files, *room);
  if (reason.empty()) return;
  throw Fault(ExitStatus::kLimit, "the tensors find no room at " + Quoted(folder) + ": " + reason);
}

// All that a tensor depends on but the content of its source.
std::string SignatureOf(const PlannedInput& input, const std::string& version) {
  std::string text = version + "\n" + input.plan.input.name + "\n" +
                     ShapeText(input.plan.input.shape) + "\n" +
                     std::string(ElementName(input.plan.Type())) + "\n";
  if (input.plan.recipe) text += ToText(ToJson(*input.plan.recipe));
  if (input.plan.random) text += ToText(ToJson(*input.plan.random));
  return text + input.signal;
}

std::vector<SourceItem> EndlessItems(const InputPlan& plan, uint64_t samples) {
  std::vector<SourceItem> items(samples);
  for (uint64_t i = 0; i < samples; ++i) {
    items[i].kind = plan.random ? SourceKind::kRandom : SourceKind::kFlags;
    items[i].item = i;
    items[i].path = plan.random ? "random numbers" : "flags";
  }
  return items;
}

// ---- The work -----------------------------------------------------------------------------------

class Preparation {
 public:
  Preparation(const PrepareRequest& request,
              const std::function<void(const PrepareProgress&)>& show,
              const std::function<bool()>& isStopped)
      : request_(request), show_(show), isStopped_(isStopped), inputs_(PlanInputs(request)) {
    samples_ = CountSamples(inputs_, request_.count);
    for (PlannedInput& input : inputs_) {
      if (input.plan.IsEndless()) input.found.items = EndlessItems(input.plan, samples_);
    }
    if (request_.thresholds) {
      try {
        thresholds_ = MakeThresholds(*request_.thresholds, request_.model);
      } catch (const JsonError& error) {
        throw Fault(ExitStatus::kInput, "the thresholds: " + std::string(error.what()));
      }
    }
    if (request_.most) samples_ = std::min(samples_, *request_.most);
    isFaulty_.assign(samples_, false);
    for (const PlannedInput& input : inputs_) {
      signatures_.push_back(SignatureOf(input, request_.version));
      result_.remarks.insert(result_.remarks.end(), input.found.remarks.begin(),
                             input.found.remarks.end());
      if (!input.found.rateRemark.empty()) result_.remarks.push_back(input.found.rateRemark);
      result_.sizeBytes += input.plan.ItemBytes() * samples_;
    }
  }

  PrepareResult Run() {
    CheckDisk(request_.folder, FilesOnDisk());
    if (request_.isDryRun) {
      NoteKnownFaults();
      HoldToFaults();
      result_.samples = samples_;
      return std::move(result_);
    }
    folder_ = std::make_unique<PreparedFolder>(request_.folder, request_.isResumed);
    before_ = ReadRecords(request_.folder);
    // What stands there is not of these tensors any more.
    for (const char* file : {kPreparedList, kManifestFile}) {
      (void)unlink(folder_->Path(std::string(file)).c_str());
    }
    KeepNotes();
    MakeItems();
    HoldToFaults();
    WriteAll();
    return std::move(result_);
  }

 private:
  // Items, and packed ones beside them, of which the last batch is filled up.
  [[nodiscard]] std::vector<FilesToMake> FilesOnDisk() const {
    std::vector<FilesToMake> files;
    const uint64_t batches = samples_ / request_.batch + (samples_ % request_.batch > 0 ? 1 : 0);
    for (const PlannedInput& input : inputs_) {
      const uint64_t bytes = input.plan.ItemBytes();
      files.push_back({input.found.items.size() == 1 ? 1 : samples_, bytes});
      if (request_.batch == 1) continue;
      uint64_t packed = 0;
      if (__builtin_mul_overflow(request_.batch, bytes, &packed)) packed = UINT64_MAX;
      files.push_back({batches, packed});
    }
    return files;
  }

  [[nodiscard]] const SourceItem& ItemOf(uint64_t sample, size_t input) const {
    const std::vector<SourceItem>& items = inputs_[input].found.items;
    return items[items.size() == 1 ? 0 : sample];
  }

  // One item that all samples share is made once.
  [[nodiscard]] uint64_t OwnerOf(uint64_t sample, size_t input) const {
    return inputs_[input].found.items.size() == 1 ? 0 : sample;
  }

  [[nodiscard]] std::optional<ItemRecord>& RecordOf(uint64_t sample, size_t input) {
    return records_[OwnerOf(sample, input) * inputs_.size() + input];
  }

  [[nodiscard]] std::string NameOfItem(uint64_t sample, size_t input) const {
    std::string name = NumberText(OwnerOf(sample, input), samples_);
    if (inputs_.size() > 1) name += "." + std::to_string(input);
    return std::string(request_.batch > 1 ? kItemsFolder : kTensorsFolder) + "/" + name + ".bin";
  }

  // Notes of this time and of those before, so that a manifest is not missed that is gone.
  void KeepNotes() {
    const std::string path = folder_->Path(kPreparedNotes);
    ClearPlace(path);
    std::string lines;
    for (const auto& [name, record] : before_) lines += ToText(ToJson(record)) + "\n";
    WriteWholeFile(path, lines);
    notes_ = std::make_unique<LineFile>(path);
  }

  // In a child.
  std::string MakeOne(uint64_t task) {
    const auto& [sample, place] = tasks_[task];
    const SourceItem& item = ItemOf(sample, place);
    if (!item.fault.empty()) throw Fault(ExitStatus::kInput, item.fault);
    ItemRecord record;
    record.path = NameOfItem(sample, place);
    record.array = item.array;
    record.item = item.item;
    // Flags are made of nothing but the frames that they go with.
    const bool areFlags = item.kind == SourceKind::kFlags;
    const SourceItem& madeOf = areFlags ? ItemOf(sample, 0) : item;
    // A picture is read once: for its hash, its kind and its pixels.
    const bool isPicture = item.kind == SourceKind::kPicture;
    std::optional<std::string_view> file;
    if (madeOf.kind == SourceKind::kRandom) {
      record.source.path = madeOf.path;
    } else if (isPicture) {
      record.source = ReadPicture(item.path);
      if (record.source.sizeBytes == file_.size()) file = file_;
    } else {
      record.source = Identify(madeOf.path);
    }
    std::string key = signatures_[place] + "\n" + record.source.xxh3.value_or("") + "\n" +
                      madeOf.array + "\n" + (madeOf.item ? std::to_string(*madeOf.item) : "");
    if (areFlags) key += "\n" + signatures_[0];
    if (isPicture) key += "\n" + DecoderKey(file_);
    record.key = Xxh3Of(key);
    const std::string path = folder_->Path(record.path);
    if (const auto kept = Kept(record, path)) return ToText(ToJson(*kept));
    if (makers_.empty()) {
      for (const PlannedInput& input : inputs_) makers_.emplace_back(input.plan);
    }
    MadeItem made = item.kind == SourceKind::kFlags ? MakeFlags(sample, place)
                                                    : makers_[place].Make(item, file);
    record.sizeBytes = made.bytes.size();
    record.facts = std::move(made.facts);
    record.xxh3 = WriteTensor(path, made.bytes);
    Json json = ToJson(record);
    json.Set("isMade", true);
    return ToText(json);
  }

  // As many as the frames that they go with; each item is a sequence of its own.
  MadeItem MakeFlags(uint64_t sample, size_t place) {
    const uint64_t frames =
        makers_[0].Make(ItemOf(sample, 0)).bytes.size() / inputs_[0].plan.FrameBytes();
    const std::vector<uint8_t> flags = ContinuationFlags(std::span(&frames, 1));
    Array array{ElementType::kUint8, {flags.size()}, {}};
    const auto bytes = std::as_bytes(std::span(flags));
    array.bytes.assign(bytes.begin(), bytes.end());
    flags_ = StoreArray(array, inputs_[place].plan.Type(), std::nullopt, "the flags");
    MadeItem made;
    made.bytes = flags_;
    return made;
  }

  // Of an archive or a stack once for all of its items.
  FileIdentity Identify(const std::string& path) {
    if (identified_.path != path) {
      identified_ = IdentifyFile(path, "the source", ExitStatus::kInput);
    }
    return identified_;
  }

  // Leaves in file_ what the file holds; of one that is too large to be decoded only its head.
  FileIdentity ReadPicture(const std::string& path) {
    if (file_.capacity() > kMostKeptBytes) file_ = {};
    file_.clear();
    std::error_code error;
    const uintmax_t size = fs::file_size(path, error);
    const bool isTooLarge = error || size > DecodeLimits{}.mostFileBytes;
    if (!isTooLarge) file_.reserve(size);
    return IdentifyFile(path, "the source", ExitStatus::kInput, [&](std::string_view piece) {
      if (!isTooLarge || file_.empty()) file_ += piece;
    });
  }

  static std::string DecoderKey(std::string_view bytes) {
    const auto format = FormatOf(bytes);
    return format ? DecoderOf(*format) : "";
  }

  [[nodiscard]] std::optional<ItemRecord> Kept(const ItemRecord& wanted,
                                               const std::string& path) const {
    const auto found = before_.find(wanted.path);
    if (found == before_.end() || found->second.key != wanted.key) return std::nullopt;
    struct stat about {};
    if (lstat(path.c_str(), &about) != 0 || !S_ISREG(about.st_mode)) return std::nullopt;
    if (static_cast<uint64_t>(about.st_size) != found->second.sizeBytes) return std::nullopt;
    const FileIdentity there = IdentifyFile(path, "the tensor", ExitStatus::kInput);
    if (there.xxh3 != found->second.xxh3) return std::nullopt;
    ItemRecord kept = found->second;
    kept.source = wanted.source;
    return kept;
  }

  void MakeItems() {
    records_.resize(samples_ * inputs_.size());
    for (uint64_t sample = 0; sample < samples_; ++sample) {
      for (size_t input = 0; input < inputs_.size(); ++input) {
        if (OwnerOf(sample, input) == sample) tasks_.emplace_back(sample, input);
      }
    }
    PrepareProgress progress{.all = tasks_.size()};
    const WorkerLimits limits{
        .workers = request_.workers, .time = request_.time, .memoryBytes = request_.memoryBytes};
    bool isStopped = false;
    RunTasks(
        tasks_.size(), limits, [this](uint64_t task) { return MakeOne(task); },
        [&](const TaskAnswer& answer) {
          Take(answer);
          ++progress.done;
          progress.faults = faultCount_;
          show_(progress);
          isStopped = isStopped_();
          return !isStopped;
        },
        [&] { isStopped = isStopped || isStopped_(); });
    if (isStopped) {
      throw Fault(ExitStatus::kLimit, "was stopped; " +
                                          std::to_string(result_.made + result_.kept) + " of " +
                                          std::to_string(tasks_.size()) +
                                          " tensors are made, and --resume makes the rest");
    }
  }

  void Take(const TaskAnswer& answer) {
    const auto& [sample, input] = tasks_[answer.task];
    if (answer.status == ExitStatus::kDone) {
      const Json json = ParseJson(answer.text);
      const bool isMade = json.Find("isMade") != nullptr;
      ++(isMade ? result_.made : result_.kept);
      std::optional<ItemRecord>& record = RecordOf(sample, input);
      record = ItemFromJson(json);
      if (isMade) notes_->Append(ToText(ToJson(*record)) + "\n");
      return;
    }
    // A full disk is no fault of the source's, and does not get better with the next one.
    if (answer.status == ExitStatus::kLimit && answer.text.starts_with(kCannotWrite)) {
      throw Fault(answer.status, answer.text + ", and --resume makes the rest");
    }
    NoteFault(sample, input, ItemOf(sample, input).Name(), answer.text);
  }

  void NoteFault(uint64_t sample, size_t input, const std::string& source,
                 const std::string& reason) {
    ++faultCount_;
    // Some name the file themselves.
    const bool isNamed = reason.find(Printable(source)) != std::string::npos;
    left_.push_back({source, isNamed ? reason : Printable(source) + ": " + reason});
    const bool isShared = inputs_[input].found.items.size() == 1;
    for (uint64_t one = isShared ? 0 : sample; one < (isShared ? samples_ : sample + 1); ++one) {
      isFaulty_[one] = true;
    }
  }

  void NoteKnownFaults() {
    for (uint64_t sample = 0; sample < samples_; ++sample) {
      for (size_t input = 0; input < inputs_.size(); ++input) {
        const SourceItem& item = ItemOf(sample, input);
        if (OwnerOf(sample, input) != sample || item.fault.empty()) continue;
        NoteFault(sample, input, item.Name(), item.fault);
      }
    }
  }

  void HoldToFaults() {
    if (left_.empty()) return;
    // As they stand in the source, and not as they were met.
    std::sort(left_.begin(), left_.end(),
              [](const LeftOut& a, const LeftOut& b) { return a.source < b.source; });
    result_.left = left_;
    const std::vector<std::string> lines = FoldedReasons(left_);
    std::string text;
    for (size_t i = 0; i < std::min(lines.size(), kMostNamedFaults); ++i) text += "\n" + lines[i];
    if (lines.size() > kMostNamedFaults) {
      text += "\nand " + std::to_string(lines.size() - kMostNamedFaults) + " more";
    }
    const bool isNothingLeft =
        std::find(isFaulty_.begin(), isFaulty_.end(), false) == isFaulty_.end();
    if (request_.areFaultsLeftOut && !isNothingLeft) return;
    throw Fault(ExitStatus::kInput,
                Counted(left_.size(), "source") + " cannot be used, and no list is written" +
                    (isNothingLeft ? "" : "; --keep-going leaves them out") + text);
  }

  // ---- What was made, into files of the list

  // Items of one input, one behind the other, the last one as often as the batch is short of.
  TensorRecord Pack(uint64_t group, size_t input, const std::vector<uint64_t>& samples) {
    TensorRecord tensor;
    tensor.sample = group;
    tensor.input = inputs_[input].plan.input.name;
    for (const uint64_t sample : samples) {
      tensor.items.push_back(*RecordOf(sample, input));
    }
    if (request_.batch == 1) {
      const ItemRecord& only = tensor.items.front();
      tensor.file = {only.path, only.sizeBytes, only.xxh3};
      return tensor;
    }
    std::string bytes;
    for (const ItemRecord& item : tensor.items) {
      bytes +=
          ReadWholeFile(folder_->Path(item.path), "the item", ExitStatus::kInput, item.sizeBytes);
    }
    tensor.filled = request_.batch - tensor.items.size();
    const size_t last = tensor.items.back().sizeBytes;
    for (uint64_t i = 0; i < tensor.filled; ++i) bytes.append(bytes, bytes.size() - last, last);
    std::string name = NumberText(group, samples_);
    if (inputs_.size() > 1) name += "." + std::to_string(input);
    tensor.file = {std::string(kTensorsFolder) + "/" + name + ".bin", bytes.size(), {}};
    tensor.file.xxh3 =
        WriteTensor(folder_->Path(tensor.file.path), std::as_bytes(std::span(bytes)));
    return tensor;
  }

  void WriteAll() {
    Manifest manifest;
    manifest.command = request_.command;
    manifest.version = request_.version;
    manifest.model = request_.model.model;
    manifest.batch = request_.batch;
    manifest.left = result_.left;
    for (const PlannedInput& input : inputs_) manifest.inputs.Append(InputJson(input));
    std::vector<uint64_t> fit;
    for (uint64_t sample = 0; sample < samples_; ++sample) {
      if (!isFaulty_[sample]) fit.push_back(sample);
    }
    std::string list;
    for (size_t at = 0; at < fit.size(); at += request_.batch) {
      const std::vector<uint64_t> group(
          fit.begin() + static_cast<std::ptrdiff_t>(at),
          fit.begin() + static_cast<std::ptrdiff_t>(std::min(at + request_.batch, fit.size())));
      for (size_t input = 0; input < inputs_.size(); ++input) {
        manifest.tensors.push_back(Pack(at / request_.batch, input, group));
        list += manifest.tensors.back().file.path + "\n";
      }
    }
    RemoveOthers(manifest);
    manifest.samples = manifest.tensors.size() / inputs_.size();
    if (request_.batch > 1 && !manifest.tensors.empty() && manifest.tensors.back().filled > 0) {
      result_.remarks.push_back(
          "the last batch has " + Counted(manifest.tensors.back().items.size(), "item") +
          " of its own and " + std::to_string(manifest.tensors.back().filled) +
          (manifest.tensors.back().filled == 1 ? " copy" : " copies") + " of the last one");
    }
    for (size_t i = 0; i < thresholds_.size(); ++i) {
      result_.thresholds.push_back(folder_->Path("thresholds." + std::to_string(i) + ".txt"));
      ClearPlace(result_.thresholds.back());
      WriteWholeFile(result_.thresholds.back(), thresholds_[i].text);
    }
    folder_->Sync();
    const std::string path = folder_->Path(kPreparedList);
    ClearPlace(path);
    WriteWholeFile(path, list);
    WriteManifest(request_.folder, manifest);
    (void)unlink(folder_->Path(kPreparedNotes).c_str());
    result_.samples = manifest.samples;
    result_.list = path;
  }

  static Json InputJson(const PlannedInput& input) {
    Json shape = Json::Array();
    for (const int64_t size : input.plan.input.shape) shape.Append(size);
    Json json = Json::Object({{"name", input.plan.input.name},
                              {"type", ElementName(input.plan.Type())},
                              {"shape", shape},
                              {"source", input.source}});
    if (input.plan.part) json.Set("part", *input.plan.part);
    if (input.plan.recipe) json.Set("recipe", ToJson(*input.plan.recipe));
    if (input.plan.random) json.Set("random", ToJson(*input.plan.random));
    if (input.asked) json.Set("signal", *input.asked);
    if (input.plan.rawSignal) json.Set("raw", *input.plan.rawSignal);
    return json;
  }

  // Tensors of an earlier time that nothing names any more, and what a killed one left.
  void RemoveOthers(const Manifest& manifest) const {
    std::vector<std::string> named;
    for (const TensorRecord& tensor : manifest.tensors) {
      named.push_back(tensor.file.path);
      for (const ItemRecord& item : tensor.items) named.push_back(item.path);
    }
    std::sort(named.begin(), named.end());
    for (const char* folder : {kTensorsFolder, kItemsFolder}) {
      std::error_code error;
      for (const auto& entry : fs::directory_iterator(folder_->Path(folder), error)) {
        const std::string name = std::string(folder) + "/" + entry.path().filename().string();
        const bool isOurs = name.ends_with(".bin") || name.ends_with(kUnfinishedSuffix);
        std::error_code ignored;
        if (isOurs && !std::binary_search(named.begin(), named.end(), name)) {
          fs::remove(entry.path(), ignored);
        }
      }
    }
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder_->Path("."), error)) {
      const std::string name = entry.path().filename().string();
      std::error_code ignored;
      for (const char* file : {kPreparedList, kManifestFile, kPreparedNotes}) {
        const bool isOurs = name.starts_with(std::string(file) + ".");
        if (isOurs && name.ends_with(kUnfinishedSuffix)) fs::remove(entry.path(), ignored);
      }
    }
    std::error_code ignored;
    fs::remove(folder_->Path(kItemsFolder), ignored);  // if nothing is in it
  }

  const PrepareRequest& request_;
  const std::function<void(const PrepareProgress&)>& show_;
  const std::function<bool()>& isStopped_;
  std::vector<PlannedInput> inputs_;
  std::vector<std::string> signatures_;  ///< an input each
  std::vector<ThresholdFile> thresholds_;
  uint64_t samples_ = 0;
  std::unique_ptr<PreparedFolder> folder_;
  std::unique_ptr<LineFile> notes_;
  std::map<std::string, ItemRecord> before_;
  std::vector<std::optional<ItemRecord>> records_;  ///< sample by sample, an input each
  std::vector<std::pair<uint64_t, size_t>> tasks_;  ///< sample and input
  std::vector<bool> isFaulty_;                      ///< a sample each
  std::vector<LeftOut> left_;
  uint64_t faultCount_ = 0;
  PrepareResult result_;

  // Of a child.
  std::vector<ItemMaker> makers_;
  FileIdentity identified_;
  std::string file_;  ///< of a picture
  std::vector<std::byte> flags_;
};

}  // namespace

std::vector<TensorDescription> FileInputs(const ModelDescription& model) {
  std::vector<TensorDescription> inputs;
  for (const TensorDescription& input : model.inputs) {
    if (input.role == TensorRole::kData) inputs.push_back(input);
  }
  return inputs;
}

std::vector<std::string> FoldedReasons(const std::vector<LeftOut>& left) {
  constexpr size_t kFewest = 4;
  constexpr size_t kMostNamed = 3;
  // Reasons without the sources' own names, in the order in which they come first.
  std::map<std::string, std::vector<size_t>> groups;
  std::vector<std::string> keys;
  for (size_t i = 0; i < left.size(); ++i) {
    std::string key = left[i].reason;
    const std::string name = Printable(left[i].source);
    if (const size_t at = key.find(name); at != std::string::npos) key.replace(at, name.size(), "");
    if (groups[key].empty()) keys.push_back(key);
    groups[key].push_back(i);
  }
  std::vector<std::string> lines;
  for (const std::string& key : keys) {
    const std::vector<size_t>& members = groups[key];
    if (members.size() < kFewest) {
      for (const size_t i : members) lines.push_back(left[i].reason);
      continue;
    }
    std::string line = left[members.front()].reason + "; the same of " +
                       std::to_string(members.size() - 1) + " more: ";
    for (size_t i = 1; i < members.size() && i <= kMostNamed; ++i) {
      line += (i == 1 ? "" : ", ") + Quoted(left[members[i]].source);
    }
    lines.push_back(line + (members.size() - 1 > kMostNamed ? ", ..." : ""));
  }
  return lines;
}

PrepareResult Prepare(const PrepareRequest& request,
                      const std::function<void(const PrepareProgress&)>& show,
                      const std::function<bool()>& isStopped) {
  return Preparation(request, show, isStopped).Run();
}

}  // namespace vorn::kit
