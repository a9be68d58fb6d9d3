// What tensors are made of: found by what is there, and told by its bytes.
#ifndef VORN_KIT_PREPARE_SOURCE_H_
#define VORN_KIT_PREPARE_SOURCE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kit/json/json.h"
#include "kit/model/model_description.h"
#include "kit/prepare/random_values.h"
#include "kit/prepare/recipe.h"
#include "kit/prepare/signal.h"
#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// Items of one source. What is noted of each is kept until the manifest is written, which has to
/// be read as a whole again.
inline constexpr uint64_t kMostSamples = 2'000'000;

enum class SourceKind {
  kPicture,
  kArray,    ///< .npy, an array of an archive, an ONNX tensor, a dump of a run
  kRaw,      ///< the bytes that the model takes, as they are
  kNumbers,  ///< a text of numbers
  kSignal,   ///< frames of a signal, in a file of sound, raw samples or an array
  kRandom,   ///< random numbers; nothing is read
  kFlags,    ///< the continuation flags of a recurrent model, made to fit the frames
};

/// What one item of one input is made of.
struct SourceItem {
  SourceKind kind = SourceKind::kPicture;
  std::string path;              ///< the file
  std::string array;             ///< of an archive: the array's name there
  std::optional<uint64_t> item;  ///< of several in the file, one behind the other
  std::string fault;             ///< why nothing can be made of it; then nothing else counts

  /// "photos/cat.jpg", "x.npz, array 'x', item 3".
  [[nodiscard]] std::string Name() const;
};

/// An input of the model, and what it is to be filled with.
struct InputPlan {
  TensorDescription input;
  size_t place = 0;         ///< among the inputs that take files
  bool isSequence = false;  ///< frames of a recurrent model: as many as there are, or fewer
  std::optional<Recipe> recipe;
  std::optional<std::string> part;  ///< the array of an archive, or the output of a run
  std::optional<SignalRecipe> signal;
  std::optional<Json> rawSignal;  ///< what OpenRawSignal takes, where files do not tell
  std::optional<RandomRecipe> random;
  bool areFlags = false;  ///< nothing is given for them

  /// As many items as somebody asks for.
  [[nodiscard]] bool IsEndless() const { return random || areFlags; }

  /// Bytes of one item, whole.
  [[nodiscard]] uint64_t ItemBytes() const;
  /// Of a recurrent model: how many frames an item has at most, and the bytes of one.
  [[nodiscard]] uint64_t MostFrames() const;
  [[nodiscard]] uint64_t FrameBytes() const;
  [[nodiscard]] ElementType Type() const;
};

struct FoundSource {
  std::vector<SourceItem> items;
  std::vector<std::string> remarks;
  std::string rateRemark{};  ///< of the first sound whose rate nobody asked for
};

/// The frames of the signal in a file, cut as the plan's signal says. Throws a Fault of kInput.
[[nodiscard]] Frames ReadFrames(const std::string& path, const InputPlan& plan);

/// A file, or a folder: one of pictures and arrays, whatever is in it in the order of the names; a
/// run; ONNX's test_data_set_* folders. Throws a Fault of kInput that says what was looked for and
/// what is there.
[[nodiscard]] FoundSource FindSource(const std::string& path, const InputPlan& plan);

/// A file of a list of them, or one item of a file that holds several.
struct ListedSource {
  std::string path;
  std::optional<std::string> part;  ///< the array of an archive
  std::optional<uint64_t> item;     ///< one alone; else all that the file holds
};

/// The items of files in the order of the list. One that cannot be used is an item with a fault.
[[nodiscard]] FoundSource FindListed(const std::vector<ListedSource>& sources,
                                     const InputPlan& plan);

/// How an array fills an input.
enum class ArrayFit {
  kWhole,     ///< it is one item
  kStack,     ///< its outermost dimension counts items
  kPicture,   ///< it is a picture for the recipe, [height, width] or [height, width, channels]
  kPictures,  ///< several of them
  kNone,
};

/// By the shapes: those that hold the same once dimensions of 1 in front are left out, and a flat
/// array of as many elements. A recipe that needs pictures is given pictures.
[[nodiscard]] ArrayFit FitOf(const Shape& shape, const InputPlan& plan);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_SOURCE_H_
