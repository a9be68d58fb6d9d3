// What the tensors of a run were made of, as the manifest.json beside them tells it
// (docs/schema/manifest.json). No more of it is read than a reference, or a comparison of how the
// inputs of two runs were prepared, needs.
#ifndef VORN_KIT_JUDGE_MANIFEST_FACTS_H_
#define VORN_KIT_JUDGE_MANIFEST_FACTS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/json/json.h"

namespace vorn::kit {

/// A file, or one item of it.
struct SourceOfItem {
  std::string path;  ///< absolute; empty of what is no file
  std::optional<std::string> xxh3;
  std::string array;  ///< of an archive
  std::optional<uint64_t> item;
  std::string decoder{};           ///< of a picture
  std::optional<Json> geometry{};  ///< of a picture, or an array that was taken for one
  std::string made{};              ///< hash of the item as it was made
};

/// What one input of the run's model was filled with.
struct ManifestInput {
  std::string source;
  std::optional<Json> part;
  std::optional<Json> random;
  std::optional<Json> signal;
  std::optional<Json> raw;
  std::optional<Json> recipe;  ///< in full
  std::vector<int64_t> shape;
  std::string type;
  std::vector<std::string> files;  ///< in the order of the list

  [[nodiscard]] bool AreFlags() const { return source.empty() && !random; }
};

struct ManifestFacts {
  uint64_t batch = 1;
  bool isWhole = true;  ///< nothing was left out
  std::map<std::string, ManifestInput> inputs;
  std::map<std::string, std::vector<SourceOfItem>> tensors;  ///< by the file's path in the folder
  std::map<std::string, std::string> inputOf;                ///< by the same: the input's name
};

/// Throws a JsonError.
[[nodiscard]] ManifestFacts ParseManifestFacts(std::string_view text);

/// Throws a Fault of kInput that names the file.
[[nodiscard]] ManifestFacts ReadManifestFacts(const std::string& path);

/// The manifests beside the tensors of a run, each read once.
class Manifests {
 public:
  /// Null where none tells of the file.
  const std::vector<SourceOfItem>* SourcesOf(const std::string& tensor);

  /// What is told of all tensors that lie beside this one.
  const ManifestFacts& FactsOf(const std::string& tensor);

  /// As a manifest has it.
  [[nodiscard]] static std::string NameOf(const std::string& tensor);

  /// The largest of all that were asked for.
  [[nodiscard]] uint64_t Batch() const { return batch_; }

 private:
  std::map<std::string, ManifestFacts> read_;
  uint64_t batch_ = 1;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_MANIFEST_FACTS_H_
