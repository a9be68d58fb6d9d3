// What a model takes and gives, as a runtime tells it, or as far as a log does.
#ifndef VORN_KIT_MODEL_MODEL_DESCRIPTION_H_
#define VORN_KIT_MODEL_MODEL_DESCRIPTION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/file_identity.h"

namespace vorn::kit {

enum class TensorRole {
  kData,        ///< an input that takes a file
  kThresholds,  ///< an input of a detection model that takes numbers of a text file
  kTask,        ///< scratch blocks: nobody gives anything for them
  kWork,
  kOutput,
};

/// One input or output. Sizes are those of one batch item. What a source does not tell is empty.
struct TensorDescription {
  TensorRole role = TensorRole::kData;
  std::string name;              ///< any characters
  std::vector<int64_t> shape;    ///< outermost first, the row last; the batch as 1 where it is open
  std::optional<uint32_t> type;  ///< a code of vorn_data_type
  std::optional<uint64_t> elementBits;
  std::optional<int32_t> format;        ///< of vorn_format
  std::optional<uint64_t> strideBytes;  ///< from row to row
  std::optional<uint64_t> deviceBytes;  ///< of a block, padding included

  /// Bytes of one row without padding: the last dimension's. Empty as well where it would not fit.
  [[nodiscard]] std::optional<uint64_t> RowBytes() const;

  /// All elements without padding: what a file holds of one item. Empty as well where it would not
  /// fit.
  [[nodiscard]] std::optional<uint64_t> DenseBytes() const;

  /// How many rows a block holds; empty as well for a stride of 0.
  [[nodiscard]] std::optional<uint64_t> Rows() const;
};

struct ModelDescription {
  std::optional<int32_t> netType;         ///< of vorn_net_type
  std::vector<TensorDescription> inputs;  ///< all of them, by index
  std::vector<TensorDescription> outputs;
  FileIdentity model;
  std::optional<FileIdentity> configuration;
  std::optional<FileIdentity> runtime;
};

/// "float32" for code 0 and so on; "type 99" for one that is not known.
[[nodiscard]] std::string TypeName(uint32_t type);
/// Bits of an element of a known type, by the header; empty for others.
[[nodiscard]] std::optional<uint64_t> BitsOfType(uint32_t type);
/// "NCHW", "NHWC", "ND", "format 7".
[[nodiscard]] std::string FormatName(int32_t format);
/// "feed-forward", "detection", "recurrent", "net type 7".
[[nodiscard]] std::string NetTypeName(int32_t netType);
/// "data", "thresholds", "task", "work", "output".
[[nodiscard]] std::string_view RoleName(TensorRole role);
/// "1x3x224x224".
[[nodiscard]] std::string ShapeText(const std::vector<int64_t>& shape);

/// Tells the inputs apart by what vorn.h says of their order: the last two are task and work
/// buffer; of a detection model those before them that look like thresholds (float32 of [1, 4] or
/// [4, classes]) are thresholds, except the first.
void AssignRoles(ModelDescription& description);

}  // namespace vorn::kit

#endif  // VORN_KIT_MODEL_MODEL_DESCRIPTION_H_
