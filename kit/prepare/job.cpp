#include "kit/prepare/job.h"

#include <algorithm>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostJobBytes = 256 << 20;

ListedSource ListedFrom(const Json& json, const std::string& folder) {
  ListedSource listed;
  if (json.IsText()) {
    listed.path = Below(folder, json.AsText());
    return listed;
  }
  HoldToKeys(json, {"path", "part", "item"});
  listed.path = Below(folder, json.At("path").AsText());
  if (const Json* part = json.Find("part")) listed.part = part->AsText();
  if (const Json* item = json.Find("item")) listed.item = item->AsUnsigned();
  return listed;
}

void TakeSource(const Json& source, const std::string& folder, InputRequest& input) {
  if (!source.IsArray()) {
    input.source = Below(folder, source.AsText());
    return;
  }
  for (const Json& one : source.Items()) input.listed.push_back(ListedFrom(one, folder));
  if (input.listed.empty()) {
    throw JsonError("the input '" + Printable(input.name) + "' has a list of no sources");
  }
  input.source = "a list of " + std::to_string(input.listed.size());
}

InputRequest InputFrom(const Json& json, const std::string& folder) {
  HoldToKeys(json, {"name", "source", "part", "recipe", "signal", "raw", "random"});
  InputRequest input;
  input.name = json.At("name").AsText();
  if (const Json* random = json.Find("random")) {
    if (json.Find("source") != nullptr) {
      throw JsonError("the input '" + Printable(input.name) + "' has a source and random numbers");
    }
    input.random = ParseRandomRecipe(*random);
    return input;
  }
  if (const Json* signal = json.Find("signal")) {
    input.signal = ParseSignalRecipe(*signal);
    input.signalText = ToText(*signal);
    input.signalJson = *signal;
  }
  if (const Json* raw = json.Find("raw")) {
    if (!input.signal) throw JsonError("raw stands without a signal");
    input.rawSignal = *raw;
    input.signalText += ToText(*raw);
  }
  TakeSource(json.At("source"), folder, input);
  if (const Json* part = json.Find("part")) input.part = part->AsText();
  const Json* recipe = json.Find("recipe");
  if (recipe == nullptr) return input;
  if (recipe->IsObject()) {
    input.recipe = RecipeFromJson(*recipe);
    return input;
  }
  const std::string& name = recipe->AsText();
  const std::vector<std::string> ready = ReadyRecipes();
  const bool isReady = std::find(ready.begin(), ready.end(), name) != ready.end();
  input.recipe = FindRecipe(isReady ? name : Below(folder, name));
  return input;
}

// The input that a word names, and what stands behind the '='.
std::pair<std::string, std::string> Split(const std::string& word, const char* option,
                                          const std::vector<TensorDescription>& inputs) {
  const TensorDescription* named = nullptr;
  for (const TensorDescription& input : inputs) {
    const bool isNamed = word.starts_with(input.name + "=");
    if (isNamed && (named == nullptr || input.name.size() > named->name.size())) named = &input;
  }
  if (named != nullptr) return {named->name, word.substr(named->name.size() + 1)};
  std::vector<std::string> names;
  std::string list;
  for (const TensorDescription& input : inputs) {
    names.push_back(input.name);
    list += (list.empty() ? "" : ", ") + Printable(input.name);
  }
  if (inputs.size() == 1) {
    // What could be a path with an '=' in it, and is none, was meant to begin with a name.
    const size_t equals = word.find('=');
    const bool isNamed = equals != std::string::npos && equals > 0 && !word.starts_with('{') &&
                         word.find('/') > equals && !IsThere(word);
    if (!isNamed) return {inputs.front().name, word};
    const std::string name = word.substr(0, equals);
    throw Fault(ExitStatus::kUsage, std::string(option) + " " + Quoted(word) +
                                        ": the model has no input " + Quoted(name) +
                                        DidYouMean(name, names) + "; it takes " + list);
  }
  throw Fault(ExitStatus::kUsage,
              std::string(option) + " " + Quoted(word) +
                  " does not begin with the name of an input and '='; the model "
                  "takes " +
                  list);
}

InputRequest& Entry(std::vector<InputRequest>& requests, const std::string& name) {
  for (InputRequest& request : requests) {
    if (request.name == name) return request;
  }
  InputRequest request;
  request.name = name;
  requests.push_back(std::move(request));
  return requests.back();
}

uint64_t CountFrom(const Json& json) {
  const uint64_t count = json.AsUnsigned();
  if (count >= 1 && count <= kMostSamples) return count;
  throw JsonError("count is " + ShownValue(json) + ", and has to be from 1 to " +
                  std::to_string(kMostSamples));
}

}  // namespace

std::vector<InputRequest> InputsFromJson(const Json& inputs, const std::string& folder) {
  std::vector<InputRequest> requests;
  for (const Json& input : inputs.Items()) {
    requests.push_back(InputFrom(input, folder));
    const std::string& name = requests.back().name;
    const auto same = std::count_if(requests.begin(), requests.end(),
                                    [&](const InputRequest& one) { return one.name == name; });
    if (same > 1) throw JsonError("the input '" + Printable(name) + "' stands there twice");
  }
  return requests;
}

Job ReadJob(const std::string& path) {
  const std::string text = ReadWholeFile(path, "the job", ExitStatus::kInput, kMostJobBytes);
  const size_t slash = path.rfind('/');
  try {
    const Json json = ParseJson(text);
    HoldToKeys(json, {"schema", "inputs", "count", "thresholds"});
    HoldToSchema(json, 1);
    Job job;
    job.inputs =
        InputsFromJson(json.At("inputs"), slash == std::string::npos ? "" : path.substr(0, slash));
    if (const Json* count = json.Find("count")) job.count = CountFrom(*count);
    if (const Json* thresholds = json.Find("thresholds")) job.thresholds = *thresholds;
    return job;
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the job " + Quoted(path) + ": " + error.what());
  }
}

std::vector<InputRequest> InputsFromWords(std::span<const std::string> sources,
                                          std::span<const std::string> recipes,
                                          std::span<const std::string> randoms,
                                          const ModelDescription& model) {
  const std::vector<TensorDescription> inputs = FileInputs(model);
  std::vector<InputRequest> requests;
  for (const std::string& word : sources) {
    const auto [name, source] = Split(word, "--input", inputs);
    InputRequest& request = Entry(requests, name);
    if (!request.source.empty()) {
      throw Fault(ExitStatus::kUsage, "--input gives the input " + Quoted(name) + " two sources, " +
                                          Quoted(request.source) + " and " + Quoted(source));
    }
    request.source = source;
  }
  for (const std::string& word : recipes) {
    const auto [name, recipe] = Split(word, "--recipe", inputs);
    InputRequest& request = Entry(requests, name);
    if (request.source.empty()) {
      throw Fault(ExitStatus::kUsage, "--recipe " + Quoted(word) + " is for the input " +
                                          Quoted(name) + ", which has no --input");
    }
    request.recipe = FindRecipe(recipe);
  }
  for (const std::string& word : randoms) {
    const auto [name, rule] = Split(word, "--random", inputs);
    InputRequest& request = Entry(requests, name);
    if (!request.source.empty()) {
      throw Fault(ExitStatus::kUsage,
                  "the input " + Quoted(name) + " is given a source and random numbers");
    }
    try {
      request.random = ParseRandomRecipe(
          rule.starts_with('{') ? ParseJson(rule) : Json::Object({{"distribution", rule}}));
    } catch (const JsonError& error) {
      throw Fault(ExitStatus::kUsage, "--random " + Quoted(word) + ": " + error.what());
    }
  }
  return requests;
}

}  // namespace vorn::kit
