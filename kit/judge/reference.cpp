#include "kit/judge/reference.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"
#include "kit/judge/manifest_facts.h"
#include "kit/model/model_json.h"
#include "kit/run/configuration_files.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMostJsonBytes = 256 << 20;
constexpr const char* kManifest = "manifest.json";  // docs/schema/manifest.json

[[noreturn]] void Refuse(const std::string& reason) { throw Fault(ExitStatus::kInput, reason); }

std::vector<TensorDescription> FileInputs(const ModelDescription& model) {
  std::vector<TensorDescription> inputs;
  for (const TensorDescription& input : model.inputs) {
    if (input.role == TensorRole::kData) inputs.push_back(input);
  }
  return inputs;
}

std::string TakesOf(const TensorDescription& input) {
  return ShapeText(input.shape) + " of " + TypeName(input.type.value_or(0));
}

// ---- Which bytes mean the same ------------------------------------------------------------------

std::vector<int64_t> WithoutOnes(const std::vector<int64_t>& shape) {
  std::vector<int64_t> rest;
  std::copy_if(shape.begin(), shape.end(), std::back_inserter(rest),
               [](int64_t size) { return size != 1; });
  return rest;
}

// One of them flat, or the same but for dimensions of 1. As many bytes in another order of
// dimensions would be another tensor.
bool TakesTheSame(const TensorDescription& one, const TensorDescription& other) {
  if (one.type != other.type || one.DenseBytes() != other.DenseBytes()) return false;
  const auto a = WithoutOnes(one.shape);
  const auto b = WithoutOnes(other.shape);
  return a == b || a.size() <= 1 || b.size() <= 1;
}

// For each input of the reference the one of the run that it is: by name, else by place.
std::vector<size_t> PairInputs(const std::vector<TensorDescription>& reference,
                               const std::vector<TensorDescription>& run) {
  std::vector<size_t> places;
  const auto placeOf = [&](const std::string& name) {
    const auto at = std::find_if(
        run.begin(), run.end(), [&](const TensorDescription& input) { return input.name == name; });
    return static_cast<size_t>(at - run.begin());
  };
  for (const TensorDescription& input : reference) places.push_back(placeOf(input.name));
  const auto isLost = [&](size_t place) { return place == run.size(); };
  if (std::none_of(places.begin(), places.end(), isLost)) return places;
  if (reference.size() == run.size() && std::all_of(places.begin(), places.end(), isLost)) {
    for (size_t i = 0; i < places.size(); ++i) places[i] = i;
    return places;
  }
  std::string names;
  for (const TensorDescription& input : run) {
    names += (names.empty() ? "" : ", ") + Printable(input.name);
  }
  const size_t lost =
      static_cast<size_t>(std::find_if(places.begin(), places.end(), isLost) - places.begin());
  Refuse("the reference's input " + Quoted(reference[lost].name) +
         " is none of the run's, which are " + names +
         "; make its run by vorn prepare and vorn launch, and give it as --expected");
}

// ---- The steps ----------------------------------------------------------------------------------

class ReferenceMaker {
 public:
  ReferenceMaker(const ReferenceRequest& request, const std::function<void(const VerbCall&)>& show)
      : request_(request), show_(show), folder_(request.run + "/reference") {}

  ReferenceRun Make() {
    ReadRunFacts();
    MakeFolder();
    Describe();
    places_ = PairInputs(reference_, own_);
    const bool isDirect = request_.recipes.empty() && AreAllAlike();
    const std::string list = isDirect ? WriteOwnList() : PrepareInputs();
    Run(list);
    HoldToInputs(isDirect);
    return {folder_ + "/run", Pairs()};
  }

 private:
  void ReadRunFacts() {
    if (!IsThere(request_.run + "/" + kSamplesFile) || !IsThere(request_.run + "/" + kModelFile)) {
      Refuse("--reference needs a run of vorn launch, and " + Quoted(request_.run) +
             " has no samples.jsonl and model.json");
    }
    facts_ = vorn::kit::ReadRun(request_.run);
    own_ =
        FileInputs(FromJson(ReadWholeFile(request_.run + "/" + kModelFile, "the run's description",
                                          ExitStatus::kModel, kMostJsonBytes)));
    for (SampleRecord& sample : ReadSamples(request_.run)) {
      if (sample.inputs.empty()) continue;  // nobody knows what it would have been
      if (sample.inputs.size() != own_.size()) {
        Refuse("sample " + std::to_string(sample.index) + " of " + Quoted(request_.run) + " has " +
               Counted(sample.inputs.size(), "input") + ", and its model takes " +
               std::to_string(own_.size()));
      }
      samples_.push_back(std::move(sample));
    }
    if (samples_.empty()) Refuse(Quoted(request_.run) + " has no samples whose inputs it tells");
  }

  void MakeFolder() {
    struct stat about {};
    // A link would lead to files that nobody named.
    if (lstat(folder_.c_str(), &about) == 0 && !S_ISDIR(about.st_mode)) {
      throw Fault(ExitStatus::kLimit, Quoted(folder_) + " is no folder; remove it");
    }
    std::error_code error;
    fs::create_directories(folder_, error);
    if (error) {
      throw Fault(ExitStatus::kLimit,
                  "the folder " + Quoted(folder_) + " cannot be made: " + error.message());
    }
    config_ = request_.config.value_or(folder_ + "/config.json");
    if (!request_.config) Write("config.json", "{}\n");
  }

  void Write(const std::string& name, const std::string& text) const {
    ClearPlace(folder_ + "/" + name);
    WriteWholeFile(folder_ + "/" + name, text);
  }

  // Its standard output. The runtime of the device that somebody has in LD_LIBRARY_PATH is not
  // meant here.
  std::string RunStep(const std::string& verb, std::vector<std::string> words,
                      bool mayBePartial = false) const {
    std::optional<std::string> search;
    if (request_.runtime) search = fs::path(Absolute(*request_.runtime)).parent_path();
    const VerbCall call{verb, std::move(words), {{"LD_LIBRARY_PATH", search}}, true};
    show_(call);
    VerbEnd end = RunVerbProcess(call);
    if (end.asked != 0) {
      throw Fault(ExitStatus::kPartial,
                  "was stopped before the reference was made; nothing was "
                  "judged");
    }
    const bool isPartial = mayBePartial && end.status == ExitStatus::kPartial;
    if (end.status != ExitStatus::kDone && !isPartial) {
      throw Fault(end.status,
                  "the reference could not be made: vorn " + verb + " ended with status " +
                      std::to_string(static_cast<int>(end.status)) + ", as it says above");
    }
    return std::move(end.out);
  }

  void Describe() {
    description_ = RunStep("inspect", {"-m", request_.model, "-j", config_, "--json"});
    const ModelDescription model = FromJson(description_);
    reference_ = FileInputs(model);
    takesThresholds_ = std::any_of(
        model.inputs.begin(), model.inputs.end(),
        [](const TensorDescription& input) { return input.role == TensorRole::kThresholds; });
    Write("model.json", description_);
  }

  [[nodiscard]] bool AreAllAlike() const {
    for (size_t i = 0; i < reference_.size(); ++i) {
      if (!TakesTheSame(reference_[i], own_[places_[i]])) return false;
    }
    return true;
  }

  [[nodiscard]] const SampleInput& InputOf(const SampleRecord& sample, size_t input) const {
    return sample.inputs[places_[input]];
  }

  // ---- The run's own files

  std::string WriteOwnList() const {
    std::string list;
    for (const SampleRecord& sample : samples_) {
      for (size_t i = 0; i < reference_.size(); ++i) {
        const std::string path = Absolute(InputOf(sample, i).file.path);
        if (!IsThere(path)) {
          Refuse("the input " + Quoted(path) + " of sample " + std::to_string(sample.index) +
                 " is not there; judge where the run was made");
        }
        // Paths count from the folder of the list.
        std::error_code error;
        const std::string fromHere = fs::relative(path, folder_, error);
        if (error || fromHere.find_first_of(":\n\r") != std::string::npos) {
          Refuse("no list can name the input " + Quoted(path) + ": " +
                 (error ? error.message() : "there is a colon or a line end in its path"));
        }
        list += fromHere + "\n";
      }
    }
    Write("list.txt", list);
    return folder_ + "/list.txt";
  }

  // ---- Prepared anew

  std::string PrepareInputs() {
    Manifests manifests;
    Json inputs = Json::Array();
    bool isAnySource = false;
    for (size_t i = 0; i < reference_.size(); ++i) {
      const auto recipe = RecipeOf(reference_[i].name);
      const ManifestInput* whole = MadeAsAWhole(i, manifests);
      if (whole != nullptr) {
        HoldToNoRecipe(i, recipe.has_value());
        if (!whole->AreFlags()) inputs.Append(WholeInput(i, *whole));
        isAnySource = isAnySource || whole->signal;
        continue;
      }
      Json sources = Json::Array();
      for (const SampleRecord& sample : samples_) AddSources(sample, i, manifests, sources);
      Json input = Json::Object({{"name", reference_[i].name}, {"source", sources}});
      if (recipe) input.Set("recipe", *recipe);
      inputs.Append(input);
      isAnySource = true;
    }
    HoldToRecipes();
    Json job = Json::Object({{"schema", 1}, {"inputs", inputs}});
    if (!isAnySource) job.Set("count", items_);
    Write("job.json", ToText(job, 2) + "\n");
    std::vector<std::string> words{
        "--model-json", folder_ + "/model.json", "--job",    folder_ + "/job.json",
        "-o",           folder_ + "/inputs",     "--resume", "--quiet"};
    if (manifests.Batch() > 1) {
      words.insert(words.end(), {"-b", std::to_string(manifests.Batch())});
    }
    (void)RunStep("prepare", std::move(words));
    HoldToSources();
    return folder_ + "/inputs/list.txt";
  }

  // What an input was made of where that is no file an item: random numbers, a signal, flags. Null
  // for all others.
  const ManifestInput* MadeAsAWhole(size_t input, Manifests& manifests) {
    const std::string first = Absolute(InputOf(samples_.front(), input).file.path);
    if (manifests.SourcesOf(first) == nullptr) return nullptr;
    const ManifestFacts& facts = manifests.FactsOf(first);
    const auto at = facts.inputs.find(own_[places_[input]].name);
    if (at == facts.inputs.end()) return nullptr;
    const ManifestInput& made = at->second;
    if (!made.random && !made.signal && !made.AreFlags()) return nullptr;
    // A sample's number decides what is made of it.
    bool isSame = facts.isWhole && made.files.size() == samples_.size();
    items_ = 0;
    for (size_t i = 0; isSame && i < samples_.size(); ++i) {
      const std::string file = Absolute(InputOf(samples_[i], input).file.path);
      const std::vector<SourceOfItem>* items = manifests.SourcesOf(file);
      isSame = items != nullptr && Manifests::NameOf(file) == made.files[i];
      if (!isSame) break;
      items_ += items->size();
      if (made.signal) sources_.insert(sources_.end(), items->begin(), items->end());
    }
    if (!isSame) {
      Refuse("the run's input " + Quoted(own_[places_[input]].name) + " was made of " +
             (made.random ? "random numbers" : "a signal") +
             ", which are made anew as a whole alone, and the run's list is not all that was "
             "prepared, in its order");
    }
    return &made;
  }

  Json WholeInput(size_t input, const ManifestInput& made) const {
    Json json = Json::Object({{"name", reference_[input].name}});
    if (made.random) {
      Json random = *made.random;
      // The numbers go by the name of the run's input.
      const bool isNamed = random.Find("series") != nullptr;
      const std::string& name = own_[places_[input]].name;
      if (!isNamed && name != reference_[input].name) random.Set("series", name);
      json.Set("random", random);
      return json;
    }
    json.Set("source", Absolute(made.source));
    if (made.part) json.Set("part", *made.part);
    json.Set("signal", *made.signal);
    if (made.raw) json.Set("raw", *made.raw);
    return json;
  }

  void HoldToNoRecipe(size_t input, bool hasRecipe) const {
    if (!hasRecipe) return;
    throw Fault(ExitStatus::kUsage,
                "--reference-recipe is for the input " + Quoted(reference_[input].name) +
                    ", and what the run's was made of takes none: it is made anew as it was");
  }

  void AddSources(const SampleRecord& sample, size_t input, Manifests& manifests, Json& sources) {
    const SampleInput& own = InputOf(sample, input);
    const std::vector<SourceOfItem>* items = manifests.SourcesOf(Absolute(own.file.path));
    if (items == nullptr) {
      Refuse("the reference's input " + Quoted(reference_[input].name) + " takes " +
             TakesOf(reference_[input]) + ", the run's " + Quoted(own_[places_[input]].name) + " " +
             TakesOf(own_[places_[input]]) + ", and no manifest.json of vorn prepare tells what " +
             Quoted(own.file.path) + " was made of");
    }
    for (const SourceOfItem& item : *items) {
      if (item.path.empty()) {
        Refuse("what " + Quoted(own.file.path) +
               " was made of is no file, and cannot be made anew");
      }
      Json source = Json::Object({{"path", item.path}});
      if (!item.array.empty()) source.Set("part", item.array);
      if (item.item) source.Set("item", *item.item);
      sources.Append(source);
      sources_.push_back(item);
    }
  }

  // The recipe's words that are for an input, as a job takes them.
  std::optional<std::string> RecipeOf(const std::string& input) {
    std::optional<std::string> recipe;
    for (size_t i = 0; i < request_.recipes.size(); ++i) {
      const std::string& word = request_.recipes[i];
      const bool isNamed = word.starts_with(input + "=");
      if (!isNamed && reference_.size() > 1) continue;
      if (recipe) {
        throw Fault(ExitStatus::kUsage,
                    "--reference-recipe gives the input " + Quoted(input) + " two recipes");
      }
      recipe = isNamed ? word.substr(input.size() + 1) : word;
      usedRecipes_.push_back(i);
      const bool isFile = recipe->find('/') != std::string::npos || recipe->ends_with(".json");
      if (isFile) recipe = Absolute(*recipe);
    }
    return recipe;
  }

  void HoldToRecipes() const {
    for (size_t i = 0; i < request_.recipes.size(); ++i) {
      if (std::find(usedRecipes_.begin(), usedRecipes_.end(), i) != usedRecipes_.end()) continue;
      std::string names;
      for (const TensorDescription& input : reference_) {
        names += (names.empty() ? "" : ", ") + Printable(input.name);
      }
      throw Fault(ExitStatus::kUsage, "--reference-recipe " + Quoted(request_.recipes[i]) +
                                          " does not begin with the name of an input and '='; the "
                                          "reference takes " +
                                          names);
    }
  }

  // Of a source that changed since the run the reference would be another picture's.
  void HoldToSources() const {
    std::map<std::string, std::string> now;
    const ManifestFacts made = ReadManifestFacts(folder_ + "/inputs/" + kManifest);
    for (const auto& [file, items] : made.tensors) {
      for (const SourceOfItem& item : items) now[item.path] = item.xxh3.value_or("");
    }
    for (const SourceOfItem& before : sources_) {
      const auto at = now.find(before.path);
      if (at == now.end() || at->second == before.xxh3) continue;
      Refuse("the source " + Quoted(before.path) +
             " has changed since the run's tensors were made of it; run it again");
    }
  }

  // ---- The run of the reference

  // Of a batch and frames, and thresholds where they are taken: repetitions are the device's.
  [[nodiscard]] std::vector<std::string> OptionsOfRun() const {
    std::vector<std::string> kept;
    if (!facts_.options) return kept;
    for (size_t i = 0; i + 1 < facts_.options->size(); ++i) {
      const std::string& option = (*facts_.options)[i];
      if (option == "-b" || option == "-t")
        kept.insert(kept.end(), {option, (*facts_.options)[i + 1]});
      if (option == "-r" && takesThresholds_) {
        kept.insert(kept.end(), {option, Thresholds((*facts_.options)[i + 1])});
      }
    }
    return kept;
  }

  // The run's files, which count from where it was made.
  [[nodiscard]] std::string Thresholds(const std::string& noted) const {
    for (const std::string& file : SplitAtCommas(noted)) {
      if (IsThere(file)) continue;
      Refuse("the thresholds " + Quoted(file) +
             " of the run are not there; judge where the run was made");
    }
    return noted;
  }

  static std::vector<std::string> SplitAtCommas(const std::string& text) {
    std::vector<std::string> pieces;
    for (size_t start = 0; start < text.size();) {
      const size_t end = std::min(text.find(',', start), text.size());
      pieces.push_back(text.substr(start, end - start));
      start = end + 1;
    }
    return pieces;
  }

  // All that the reference's outputs depend on.
  [[nodiscard]] std::string KeyOf(const std::string& list) const {
    const auto hashOf = [](const std::string& path, const char* what) {
      return IdentifyFile(path, what, ExitStatus::kInput).xxh3.value_or("") + "\n";
    };
    std::string text =
        hashOf(request_.model, "the reference") + hashOf(config_, "its configuration");
    for (const FileIdentity& file : FilesNamedIn(config_)) text += file.xxh3.value_or("") + "\n";
    text += hashOf(list, "its list");
    const std::string manifest = folder_ + "/inputs/" + kManifest;
    if (list.starts_with(folder_ + "/inputs/")) {
      text += hashOf(manifest, "its manifest");
    } else {
      for (const SampleRecord& sample : samples_) {
        for (const SampleInput& input : sample.inputs) text += input.file.xxh3.value_or("") + "\n";
      }
    }
    const std::vector<std::string> options = OptionsOfRun();
    for (size_t i = 0; i < options.size(); ++i) {
      text += options[i] + "\n";
      if (i == 0 || options[i - 1] != "-r") continue;
      for (const std::string& file : SplitAtCommas(options[i])) text += hashOf(file, "thresholds");
    }
    if (request_.runtime) text += hashOf(*request_.runtime, "its runtime");
    return ToText(Json::Object({{"schema", 1}, {"key", Xxh3Of(text)}})) + "\n";
  }

  void Run(const std::string& list) const {
    const std::string run = folder_ + "/run";
    const std::string key = KeyOf(list);
    std::string before;
    if (IsThere(folder_ + "/key.json")) {
      before = ReadWholeFile(folder_ + "/key.json", "the key", ExitStatus::kInput, kMostJsonBytes);
    }
    if (before != key) {
      std::error_code error;
      fs::remove_all(run, error);  // of a link the link
      if (error) {
        throw Fault(ExitStatus::kLimit,
                    "the old run " + Quoted(run) + " cannot be removed: " + error.message());
      }
      Write("key.json", key);
    }
    std::vector<std::string> words{
        "-m",           request_.model,          "-j",    config_, "-i",        list,
        "--model-json", folder_ + "/model.json", "--run", run,     "--no-text", "--resume",
        "--quiet"};
    for (const std::string& word : OptionsOfRun()) words.push_back(word);
    (void)RunStep("launch", std::move(words), true);
  }

  // The run's own files may have been written over since.
  void HoldToInputs(bool isDirect) const {
    if (!isDirect) return;
    const std::vector<SampleRecord> made = ReadSamples(folder_ + "/run");
    for (const SampleRecord& sample : made) {
      if (sample.index >= samples_.size() || sample.inputs.size() != reference_.size()) continue;
      for (size_t i = 0; i < reference_.size(); ++i) {
        const SampleInput& own = InputOf(samples_[sample.index], i);
        if (!own.file.xxh3 || sample.inputs[i].file.xxh3 == own.file.xxh3) continue;
        Refuse("the input " + Quoted(own.file.path) + " of sample " +
               std::to_string(samples_[sample.index].index) +
               " has changed since the run; run it again");
      }
    }
  }

  [[nodiscard]] std::vector<std::pair<uint64_t, uint64_t>> Pairs() const {
    std::vector<std::pair<uint64_t, uint64_t>> pairs;
    bool isSame = true;
    for (size_t i = 0; i < samples_.size(); ++i) {
      pairs.emplace_back(samples_[i].index, i);
      isSame = isSame && samples_[i].index == i;
    }
    if (isSame) pairs.clear();
    return pairs;
  }

  const ReferenceRequest& request_;
  const std::function<void(const VerbCall&)>& show_;
  std::string folder_;
  bool takesThresholds_ = false;
  uint64_t items_ = 0;  // of what is made as a whole
  std::string config_;
  RunFacts facts_;
  std::vector<TensorDescription> own_;        ///< the run's inputs
  std::vector<TensorDescription> reference_;  ///< the reference's
  std::vector<size_t> places_;                ///< of an input of the reference among the run's
  std::vector<SampleRecord> samples_;
  std::vector<SourceOfItem> sources_;
  std::vector<size_t> usedRecipes_;
  std::string description_;
};

}  // namespace

ReferenceRun MakeReference(const ReferenceRequest& request,
                           const std::function<void(const VerbCall&)>& show) {
  return ReferenceMaker(request, show).Make();
}

}  // namespace vorn::kit
