#include "kit/prepare/manifest.h"

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/json/identity_json.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kManifestSchema = 1;
constexpr uint64_t kMostManifestBytes = uint64_t{2} << 30;

Json TensorJson(const TensorRecord& tensor) {
  Json items = Json::Array();
  for (const ItemRecord& item : tensor.items) items.Append(ToJson(item));
  Json json = Json::Object({{"sample", tensor.sample},
                            {"input", tensor.input},
                            {"file", FromIdentity(tensor.file)},
                            {"items", items}});
  if (tensor.filled > 0) json.Set("filled", tensor.filled);
  return json;
}

TensorRecord TensorFrom(const Json& json) {
  TensorRecord tensor;
  tensor.sample = json.At("sample").AsUnsigned();
  tensor.input = json.At("input").AsText();
  tensor.file = ToIdentity(json.At("file"));
  for (const Json& item : json.At("items").Items()) tensor.items.push_back(ItemFromJson(item));
  if (const Json* filled = json.Find("filled")) tensor.filled = filled->AsUnsigned();
  return tensor;
}

// `"key": [` and a line an item.
void AppendLines(WholeFile& file, const char* key, const std::vector<Json>& items) {
  file.Append(std::string("  \"") + key + "\": [");
  for (size_t i = 0; i < items.size(); ++i) {
    file.Append((i == 0 ? "\n    " : ",\n    ") + ToText(items[i]));
  }
  file.Append(items.empty() ? "]" : "\n  ]");
}

}  // namespace

Json ToJson(const ItemRecord& record) {
  Json json = Json::Object({{"path", record.path}, {"source", FromIdentity(record.source)}});
  if (!record.array.empty()) json.Set("array", record.array);
  if (record.item) json.Set("item", *record.item);
  json.Set("sizeBytes", record.sizeBytes);
  json.Set("xxh3_128", record.xxh3);
  json.Set("key", record.key);
  for (const auto& [key, value] : record.facts.Members()) json.Set(key, value);
  return json;
}

ItemRecord ItemFromJson(const Json& json) {
  ItemRecord record;
  record.path = json.At("path").AsText();
  record.source = ToIdentity(json.At("source"));
  if (const Json* array = json.Find("array")) record.array = array->AsText();
  if (const Json* item = json.Find("item")) record.item = item->AsUnsigned();
  record.sizeBytes = json.At("sizeBytes").AsUnsigned();
  record.xxh3 = json.At("xxh3_128").AsText();
  record.key = json.At("key").AsText();
  for (const char* key : {"decoder", "pixelsXxh3_128", "geometry", "remarks"}) {
    if (const Json* fact = json.Find(key)) record.facts.Set(key, *fact);
  }
  return record;
}

std::map<std::string, ItemRecord> ReadRecords(const std::string& folder) {
  std::map<std::string, ItemRecord> records;
  if (IsThere(folder + "/" + kManifestFile)) {
    try {
      for (TensorRecord& tensor : ReadManifest(folder).tensors) {
        for (ItemRecord& item : tensor.items) records[item.path] = std::move(item);
      }
    } catch (const Fault&) {
      records.clear();
    }
  }
  if (!IsThere(folder + "/" + kPreparedNotes)) return records;
  ForEachLine(folder + "/" + kPreparedNotes, "the notes", ExitStatus::kInput,
              [&](std::string_view line) {
                try {
                  ItemRecord record = ItemFromJson(ParseJson(line));
                  records[record.path] = std::move(record);
                } catch (const JsonError&) {
                  return;  // half a line, of a machine that lost power
                }
              });
  return records;
}

void WriteManifest(const std::string& folder, const Manifest& manifest) {
  const std::string path = folder + "/" + kManifestFile;
  ClearPlace(path);
  WholeFile file(path);
  Json head = Json::Object({{"schema", kManifestSchema},
                            {"command", Json::ArrayOf(manifest.command)},
                            {"version", manifest.version},
                            {"model", FromIdentity(manifest.model)},
                            {"batch", manifest.batch},
                            {"samples", manifest.samples},
                            {"inputs", manifest.inputs}});
  std::string text = ToText(head, 2);
  text.resize(text.rfind('}'));
  while (text.ends_with('\n')) text.pop_back();
  file.Append(text + ",\n");
  std::vector<Json> tensors;
  for (const TensorRecord& tensor : manifest.tensors) tensors.push_back(TensorJson(tensor));
  AppendLines(file, "tensors", tensors);
  file.Append(",\n");
  std::vector<Json> left;
  for (const LeftOut& one : manifest.left) {
    left.push_back(Json::Object({{"source", one.source}, {"reason", one.reason}}));
  }
  AppendLines(file, "left", left);
  file.Append("\n}\n");
  file.Finish();
}

Manifest ParseManifest(std::string_view text) {
  const Json json = ParseJson(text);
  Manifest manifest;
  for (const Json& word : json.At("command").Items()) manifest.command.push_back(word.AsText());
  manifest.version = json.At("version").AsText();
  manifest.model = ToIdentity(json.At("model"));
  manifest.batch = json.At("batch").AsUnsigned();
  manifest.samples = json.At("samples").AsUnsigned();
  manifest.inputs = json.At("inputs");
  for (const Json& tensor : json.At("tensors").Items()) {
    manifest.tensors.push_back(TensorFrom(tensor));
  }
  for (const Json& left : json.At("left").Items()) {
    manifest.left.push_back({left.At("source").AsText(), left.At("reason").AsText()});
  }
  return manifest;
}

Manifest ReadManifest(const std::string& folder) {
  const std::string path = folder + "/" + kManifestFile;
  const std::string text =
      ReadWholeFile(path, "the manifest", ExitStatus::kInput, kMostManifestBytes);
  try {
    return ParseManifest(text);
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the manifest " + Quoted(path) + ": " + error.what());
  }
}

}  // namespace vorn::kit
