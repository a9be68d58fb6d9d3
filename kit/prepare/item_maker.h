// One item of a source made into the bytes that the model takes.
#ifndef VORN_KIT_PREPARE_ITEM_MAKER_H_
#define VORN_KIT_PREPARE_ITEM_MAKER_H_

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/json/json.h"
#include "kit/prepare/picture_tensor.h"
#include "kit/prepare/source.h"
#include "kit/tensor/array.h"

namespace vorn::kit {

struct MadeItem {
  std::span<const std::byte> bytes;  ///< the maker's, until it makes the next one
  /// What somebody may want to know of it later, members of a manifest's item: of a picture
  /// "decoder", "pixelsXxh3_128", "geometry"; of all "remarks" where there are any.
  Json facts = Json::Object();
};

class ItemMaker {
 public:
  explicit ItemMaker(InputPlan plan) : plan_(std::move(plan)) {}

  /// `file`: what the item's file holds, where that was read already; else it is read where it has
  /// to be. Throws a Fault of kInput or kLimit that says what is wrong, without the file's name in
  /// front.
  [[nodiscard]] MadeItem Make(const SourceItem& item, std::optional<std::string_view> file = {});

 private:
  // Each leaves the item in made_, and returns what there is to know of it.
  Json MakeBytes(const SourceItem& item, std::optional<std::string_view> file);
  Json FromPicture(const SourceItem& item, std::optional<std::string_view> file);
  Json FromArray(const SourceItem& item);
  Json FromRaw(const SourceItem& item);
  Json FromNumbers(const SourceItem& item);
  Json FromSignal(const SourceItem& item);
  Json FromRandom(uint64_t sample);
  Json FromValues(const Array& array, const std::string& what);
  Json FromPixels(const Array& array);
  const StoredTensor& Open(const SourceItem& item);
  TensorMaker& Tensors();

  InputPlan plan_;
  std::unique_ptr<TensorMaker> tensors_;  // of pictures
  std::vector<std::byte> made_;  // of the same size for most of them: neither made nor cleared anew
  // Of a file with many items, which is opened once.
  std::string openedName_;
  StoredTensor opened_;
  std::string numbersPath_;
  Array numbers_;
  std::string framesPath_;
  Frames frames_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_ITEM_MAKER_H_
