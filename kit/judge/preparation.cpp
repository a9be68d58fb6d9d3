#include "kit/judge/preparation.h"

#include <algorithm>
#include <map>
#include <optional>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/judge/manifest_facts.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

// One input of one sample of a run, as the manifest beside its file tells it.
struct PreparedInput {
  std::string name;
  const ManifestInput* made = nullptr;
  const std::vector<SourceOfItem>* items = nullptr;
};

class PreparedRun {
 public:
  explicit PreparedRun(const std::string& run) {
    for (SampleRecord& sample : ReadSamples(run)) {
      const uint64_t index = sample.index;
      samples_.emplace(index, std::move(sample));
    }
  }

  // In the order of the model; those of which nothing is told have no items.
  std::vector<PreparedInput> InputsOf(uint64_t sample) {
    std::vector<PreparedInput> inputs;
    const auto found = samples_.find(sample);
    if (found == samples_.end()) return inputs;
    for (const SampleInput& input : found->second.inputs) {
      inputs.push_back(InputOf(Absolute(input.file.path)));
    }
    return inputs;
  }

 private:
  PreparedInput InputOf(const std::string& file) {
    PreparedInput input;
    input.items = manifests_.SourcesOf(file);
    if (input.items == nullptr) return input;
    const ManifestFacts& facts = manifests_.FactsOf(file);
    const auto name = facts.inputOf.find(Manifests::NameOf(file));
    if (name == facts.inputOf.end()) return {};
    const auto made = facts.inputs.find(name->second);
    if (made == facts.inputs.end()) return {};
    input.name = name->second;
    input.made = &made->second;
    return input;
  }

  std::map<uint64_t, SampleRecord> samples_;
  Manifests manifests_;
};

// The input of the other side that it is: by name, and by place where no name is the same.
const PreparedInput* PartnerOf(const std::vector<PreparedInput>& inputs, size_t place,
                               const std::vector<PreparedInput>& others) {
  const auto named = [&](const std::string& name) {
    return std::find_if(others.begin(), others.end(),
                        [&](const PreparedInput& other) { return other.name == name; });
  };
  if (const auto at = named(inputs[place].name); at != others.end()) return &*at;
  const bool isNoneNamed =
      std::all_of(inputs.begin(), inputs.end(),
                  [&](const PreparedInput& input) { return named(input.name) == others.end(); });
  return isNoneNamed && inputs.size() == others.size() ? &others[place] : nullptr;
}

// ---- What came of the recipes, over all samples -------------------------------------------------

struct PixelEvidence {
  bool isAnyCompared = false;  // items of one source that did not come out the same
  bool isOrientationOther = false;
  bool isGeometryOther = false;  // of what was resized, cut or placed
  bool isAnyResized = false;
  bool isAnyFilled = false;
  bool mayBeMore = false;  // alpha, or 16 bits a value: JPEG has neither
};

std::optional<Json> MemberOf(const std::optional<Json>& object, const char* key) {
  const Json* value = object ? object->Find(key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

bool IsOther(const std::optional<Json>& one, const std::optional<Json>& other) {
  if (one.has_value() != other.has_value()) return true;
  return one && ToText(*one) != ToText(*other);
}

// Whether the resized picture leaves something of the tensor to be filled: height and width of the
// one stand beside each other in the shape of the other where it does not.
bool LeavesRoom(const std::vector<int64_t>& shape, const std::optional<Json>& resized) {
  if (!resized || resized->Items().size() != 2) return false;
  const std::vector<int64_t> size{resized->Items()[0].AsSigned(), resized->Items()[1].AsSigned()};
  return std::search(shape.begin(), shape.end(), size.begin(), size.end()) == shape.end();
}

void TakeItem(const PreparedInput& actual, const PreparedInput& expected, const SourceOfItem& one,
              const SourceOfItem& other, PixelEvidence& evidence) {
  // Bytes of one type that are the same are what they are, whatever recipes say.
  if (actual.made->type == expected.made->type && one.made == other.made) return;
  evidence.isAnyCompared = true;
  const auto isMemberOther = [&](const char* key) {
    return IsOther(MemberOf(one.geometry, key), MemberOf(other.geometry, key));
  };
  evidence.isOrientationOther |= isMemberOther("orientation");
  evidence.isGeometryOther |=
      isMemberOther("resized") || isMemberOther("cut") || isMemberOther("placed");
  for (const auto& [input, item] : {std::pair(&actual, &one), std::pair(&expected, &other)}) {
    const auto resized = MemberOf(item->geometry, "resized");
    evidence.isAnyResized |= IsOther(MemberOf(item->geometry, "picture"), resized);
    evidence.isAnyFilled |= LeavesRoom(input->made->shape, resized);
  }
  evidence.mayBeMore |= one.decoder.find("jpeg") == std::string::npos;
}

// ---- What the recipes say -----------------------------------------------------------------------

std::string TextOfMember(const std::optional<Json>& value) {
  if (!value) return "none";
  return value->IsText() ? value->AsText() : ToText(*value);
}

// A number for all channels is as good as the same one for each.
std::optional<Json> Unfolded(const std::optional<Json>& fill) {
  if (!fill || !fill->IsArray() || fill->Items().empty()) return fill;
  const auto& items = fill->Items();
  const bool isOne = std::all_of(items.begin(), items.end(), [&](const Json& item) {
    return ToText(item) == ToText(items.front());
  });
  return isOne ? items.front() : fill;
}

class RecipeComparison {
 public:
  RecipeComparison(const std::optional<Json>& actual, const std::optional<Json>& expected,
                   PreparationDifference& difference)
      : actual_(actual), expected_(expected), difference_(difference) {}

  void Compare(const PixelEvidence& evidence) {
    if (evidence.isOrientationOther) Hold("orientation");
    if (evidence.mayBeMore) Hold("depth");
    Hold("colours");
    if (evidence.mayBeMore) Hold("alpha");
    if (evidence.isAnyResized) {
      Hold("resize", "rule");
      Hold("resize", "as");
    }
    const size_t before = difference_.members.size();
    if (evidence.isGeometryOther) {
      for (const char* key : {"fit", "size", "rounding", "placement", "enlarge"}) {
        Hold("resize", key);
      }
      Hold("crop");
    }
    // Of other sizes that models ask for, recipes need not say a word.
    if (evidence.isGeometryOther && difference_.members.size() == before) {
      difference_.members.push_back({"size", "the model's", "the reference's"});
    }
    if (evidence.isAnyFilled && IsLetterbox(actual_) && IsLetterbox(expected_)) {
      Add("resize.fill", Unfolded(MemberOf(MemberOf(actual_, "resize"), "fill")),
          Unfolded(MemberOf(MemberOf(expected_, "resize"), "fill")));
    }
  }

 private:
  static bool IsLetterbox(const std::optional<Json>& recipe) {
    return TextOfMember(MemberOf(MemberOf(recipe, "resize"), "fit")) == "letterbox";
  }

  void Hold(const char* key) { Add(key, MemberOf(actual_, key), MemberOf(expected_, key)); }
  void Hold(const char* step, const char* key) {
    Add(std::string(step) + "." + key, MemberOf(MemberOf(actual_, step), key),
        MemberOf(MemberOf(expected_, step), key));
  }

  void Add(const std::string& name, const std::optional<Json>& actual,
           const std::optional<Json>& expected) {
    if (!IsOther(actual, expected)) return;
    difference_.members.push_back({name, TextOfMember(actual), TextOfMember(expected)});
  }

  const std::optional<Json>& actual_;
  const std::optional<Json>& expected_;
  PreparationDifference& difference_;
};

// Numbers and frames, which are made as a whole. What is done to values may be compiled in.
void CompareWhole(const PreparedInput& actual, const PreparedInput& expected,
                  PreparationDifference& difference) {
  const auto add = [&](const std::string& name, const std::optional<Json>& one,
                       const std::optional<Json>& other) {
    if (!IsOther(one, other)) return;
    difference.members.push_back({name, TextOfMember(one), TextOfMember(other)});
  };
  // The numbers go by a name, which is the input's where no other is given.
  const auto numbersOf = [](const PreparedInput& input) {
    Json random = *input.made->random;
    if (random.Find("series") == nullptr) random.Set("series", input.name);
    return random;
  };
  if (actual.made->random && expected.made->random) {
    const Json one = numbersOf(actual);
    const Json other = numbersOf(expected);
    for (const char* key :
         {"distribution", "low", "high", "mean", "deviation", "share", "seed", "series"}) {
      add(std::string("random.") + key, MemberOf(one, key), MemberOf(other, key));
    }
  }
  if (actual.made->signal && expected.made->signal) {
    for (const char* key : {"window", "hop", "pad", "channel", "channels", "most"}) {
      add(std::string("signal.") + key, MemberOf(actual.made->signal, key),
          MemberOf(expected.made->signal, key));
    }
    add("raw", actual.made->raw, expected.made->raw);
  }
}

std::string NameOfRecipe(const std::optional<Json>& recipe) {
  return recipe ? TextOfMember(MemberOf(recipe, "name")) : "";
}

// ---- All inputs of all samples ------------------------------------------------------------------

class Comparison {
 public:
  Comparison(const std::string& run, const std::string& expectedRun)
      : actual_(run), expected_(expectedRun) {}

  std::vector<PreparationDifference> Compare(
      const std::vector<std::pair<uint64_t, uint64_t>>& samples) {
    for (const auto& [sample, expectedSample] : samples) {
      const std::vector<PreparedInput> inputs = actual_.InputsOf(sample);
      const std::vector<PreparedInput> others = expected_.InputsOf(expectedSample);
      for (size_t i = 0; i < inputs.size(); ++i) {
        const PreparedInput* other = PartnerOf(inputs, i, others);
        if (inputs[i].made == nullptr || other == nullptr || other->made == nullptr) continue;
        TakeSample(sample, inputs[i], *other);
      }
    }
    std::vector<PreparationDifference> differences;
    for (auto& [name, input] : inputs_) {
      CompareWhole(input.actual, input.expected, input.difference);
      if (input.evidence.isAnyCompared) {
        RecipeComparison(input.actual.made->recipe, input.expected.made->recipe, input.difference)
            .Compare(input.evidence);
      }
      if (input.difference.members.empty() && input.difference.otherSources == 0) continue;
      differences.push_back(std::move(input.difference));
    }
    return differences;
  }

 private:
  struct Input {
    PreparedInput actual;
    PreparedInput expected;
    PixelEvidence evidence;
    PreparationDifference difference;
  };

  void TakeSample(uint64_t sample, const PreparedInput& actual, const PreparedInput& expected) {
    Input& input = inputs_[actual.name];
    if (input.actual.made == nullptr) {
      input.actual = actual;
      input.expected = expected;
      input.difference.input = actual.name;
      input.difference.expectedInput = expected.name;
      input.difference.recipe = NameOfRecipe(actual.made->recipe);
      input.difference.expectedRecipe = NameOfRecipe(expected.made->recipe);
    }
    if (actual.items->size() != expected.items->size()) return;  // another batch
    const bool areSignals = actual.made->signal && expected.made->signal;
    for (size_t i = 0; i < actual.items->size(); ++i) {
      const SourceOfItem& one = (*actual.items)[i];
      const SourceOfItem& other = (*expected.items)[i];
      // Tensors that somebody else has made ready for either side are other files.
      const bool arePictures = !one.decoder.empty() && !other.decoder.empty();
      if (!arePictures && !areSignals) continue;
      if (one.xxh3 == other.xxh3) {
        if (arePictures) TakeItem(actual, expected, one, other, input.evidence);
        continue;
      }
      if (input.difference.otherSources++ > 0) break;
      input.difference.firstOther = sample;
      input.difference.source = one.path;
      input.difference.expectedSource = other.path;
      break;  // a sample counts once
    }
  }

  PreparedRun actual_;
  PreparedRun expected_;
  std::map<std::string, Input> inputs_;
};

std::string RecipeText(const std::string& name) {
  return name.empty() ? "without a recipe" : "by the recipe " + Quoted(name);
}

}  // namespace

std::vector<PreparationDifference> ComparePreparation(
    const std::string& run, const std::string& expectedRun,
    const std::vector<std::pair<uint64_t, uint64_t>>& samples) {
  try {
    return Comparison(run, expectedRun).Compare(samples);
  } catch (const Fault&) {
    return {};
  } catch (const JsonError&) {
    return {};
  }
}

std::string PreparationText(const std::vector<PreparationDifference>& differences) {
  std::string text;
  for (const PreparationDifference& one : differences) {
    text += "suspect the inputs first: " + Quoted(one.input);
    if (!one.members.empty()) {
      text += " was made " + RecipeText(one.recipe) + ", and for the expected side " +
              RecipeText(one.expectedRecipe) + ":";
      for (const PreparationMember& member : one.members) {
        text += (&member == one.members.data() ? " " : "; ") + Printable(member.name) + " " +
                Printable(member.actual) + ", expected " + Printable(member.expected);
      }
    }
    if (one.otherSources > 0) {
      text += std::string(one.members.empty() ? "" : "; it") + " is of another source in " +
              Counted(one.otherSources, "sample") + ": sample " + std::to_string(one.firstOther) +
              " of " + Quoted(one.source) + ", expected " + Quoted(one.expectedSource);
    }
    text += "\n";
  }
  return text;
}

Json PreparationJson(const std::vector<PreparationDifference>& differences) {
  Json all = Json::Array();
  for (const PreparationDifference& one : differences) {
    Json members = Json::Array();
    for (const PreparationMember& member : one.members) {
      members.Append(Json::Object(
          {{"name", member.name}, {"actual", member.actual}, {"expected", member.expected}}));
    }
    Json json = Json::Object({{"input", one.input},
                              {"expectedInput", one.expectedInput},
                              {"recipe", one.recipe},
                              {"expectedRecipe", one.expectedRecipe},
                              {"differences", members}});
    if (one.otherSources > 0) {
      json.Set("otherSources", Json::Object({{"samples", one.otherSources},
                                             {"first", one.firstOther},
                                             {"actual", one.source},
                                             {"expected", one.expectedSource}}));
    }
    all.Append(std::move(json));
  }
  return all;
}

}  // namespace vorn::kit
