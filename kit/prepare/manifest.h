// What was made of what: manifest.json, and the notes that are kept until it is written.
//
//     FOLDER/list.txt         for vorn-run -i: a line an input, the inputs in the model's order
//     FOLDER/manifest.json    docs/schema/manifest.json; its tensors a line each
//     FOLDER/tensors/000000.bin, or 000000.0.bin, 000000.1.bin of models with several inputs
//     FOLDER/prepared.jsonl   a line a tensor that is made, until there is a manifest
#ifndef VORN_KIT_PREPARE_MANIFEST_H_
#define VORN_KIT_PREPARE_MANIFEST_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/file_identity.h"
#include "kit/json/json.h"

namespace vorn::kit {

inline constexpr const char* kManifestFile = "manifest.json";
inline constexpr const char* kPreparedList = "list.txt";
inline constexpr const char* kPreparedNotes = "prepared.jsonl";
inline constexpr const char* kTensorsFolder = "tensors";
inline constexpr const char* kItemsFolder = "items";  ///< before they are packed into batches

/// An item that was made, and what of: a line of the notes, a member "items" of the manifest.
struct ItemRecord {
  std::string path;     ///< of the tensor, from FOLDER on
  FileIdentity source;  ///< size and hash empty of what is no file
  std::string array;
  std::optional<uint64_t> item;
  uint64_t sizeBytes = 0;
  std::string xxh3;  ///< of the tensor
  std::string key;   ///< hash of all that it depends on
  Json facts = Json::Object();
};

[[nodiscard]] Json ToJson(const ItemRecord& record);
/// Throws a JsonError.
[[nodiscard]] ItemRecord ItemFromJson(const Json& json);

/// What was made before, by the tensor's path: of the notes, and of the manifest. What cannot be
/// read counts as not made.
[[nodiscard]] std::map<std::string, ItemRecord> ReadRecords(const std::string& folder);

/// A tensor file, with the items in it.
struct TensorRecord {
  uint64_t sample = 0;  ///< of the list: its group of lines, from 0
  std::string input;
  FileIdentity file;              ///< from FOLDER on
  std::vector<ItemRecord> items;  ///< of a batch several
  uint64_t filled = 0;            ///< how many copies of the last item make the batch whole
};

struct LeftOut {
  std::string source;
  std::string reason;
};

struct Manifest {
  std::vector<std::string> command;
  std::string version;
  FileIdentity model;
  uint64_t batch = 1;
  uint64_t samples = 0;
  Json inputs = Json::Array();  ///< name, type, shape, source, recipe in full
  std::vector<TensorRecord> tensors;
  std::vector<LeftOut> left;
};

/// Writes it into the folder, whole.
void WriteManifest(const std::string& folder, const Manifest& manifest);

/// Throws a JsonError.
[[nodiscard]] Manifest ParseManifest(std::string_view text);

/// Throws a Fault of kInput that names the file.
[[nodiscard]] Manifest ReadManifest(const std::string& folder);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_MANIFEST_H_
