#include "kit/judge/manifest_facts.h"

#include <algorithm>
#include <filesystem>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostManifestBytes = uint64_t{2} << 30;

std::optional<Json> Member(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value == nullptr ? std::nullopt : std::optional(*value);
}

SourceOfItem SourceFrom(const Json& item) {
  const FileIdentity source = ToIdentity(item.At("source"));
  SourceOfItem one;
  one.path = source.xxh3 ? Absolute(source.path) : "";
  one.xxh3 = source.xxh3;
  if (const Json* array = item.Find("array")) one.array = array->AsText();
  if (const Json* number = item.Find("item")) one.item = number->AsUnsigned();
  if (const Json* decoder = item.Find("decoder")) one.decoder = decoder->AsText();
  one.geometry = Member(item, "geometry");
  if (const Json* made = item.Find("xxh3_128")) one.made = made->AsText();
  return one;
}

ManifestInput InputFrom(const Json& json) {
  ManifestInput input;
  input.source = json.At("source").AsText();
  input.part = Member(json, "part");
  input.random = Member(json, "random");
  input.signal = Member(json, "signal");
  input.raw = Member(json, "raw");
  input.recipe = Member(json, "recipe");
  if (const Json* type = json.Find("type")) input.type = type->AsText();
  if (const Json* shape = json.Find("shape")) {
    for (const Json& size : shape->Items()) input.shape.push_back(size.AsSigned());
  }
  return input;
}

}  // namespace

ManifestFacts ParseManifestFacts(std::string_view text) {
  const Json json = ParseJson(text);
  ManifestFacts facts;
  facts.batch = json.At("batch").AsUnsigned();
  if (const Json* left = json.Find("left")) facts.isWhole = left->Items().empty();
  if (const Json* inputs = json.Find("inputs")) {
    for (const Json& input : inputs->Items()) {
      facts.inputs[input.At("name").AsText()] = InputFrom(input);
    }
  }
  for (const Json& tensor : json.At("tensors").Items()) {
    const std::string file = ToIdentity(tensor.At("file")).path;
    if (const Json* input = tensor.Find("input")) {
      facts.inputOf.emplace(file, input->AsText());
      const auto at = facts.inputs.find(input->AsText());
      if (at != facts.inputs.end()) at->second.files.push_back(file);
    }
    auto& items = facts.tensors[file];
    if (!items.empty()) continue;  // one that several samples share
    for (const Json& item : tensor.At("items").Items()) items.push_back(SourceFrom(item));
  }
  return facts;
}

ManifestFacts ReadManifestFacts(const std::string& path) {
  const std::string text =
      ReadWholeFile(path, "the manifest", ExitStatus::kInput, kMostManifestBytes);
  try {
    return ParseManifestFacts(text);
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the manifest " + Quoted(path) + ": " + error.what());
  }
}

const std::vector<SourceOfItem>* Manifests::SourcesOf(const std::string& tensor) {
  const ManifestFacts& facts = FactsOf(tensor);
  const auto found = facts.tensors.find(NameOf(tensor));
  if (found == facts.tensors.end()) return nullptr;
  batch_ = std::max(batch_, facts.batch);
  return &found->second;
}

const ManifestFacts& Manifests::FactsOf(const std::string& tensor) {
  const std::string folder = std::filesystem::path(tensor).parent_path().parent_path();
  const auto at = read_.find(folder);
  if (at != read_.end()) return at->second;
  const std::string file = folder + "/manifest.json";  // docs/schema/manifest.json
  ManifestFacts fresh;
  if (IsThere(file)) fresh = ReadManifestFacts(file);
  return read_.emplace(folder, std::move(fresh)).first->second;
}

std::string Manifests::NameOf(const std::string& tensor) {
  const std::filesystem::path path(tensor);
  return path.parent_path().filename() / path.filename();
}

}  // namespace vorn::kit
