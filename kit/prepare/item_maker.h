// One item of a source made into the bytes that the model takes.
#ifndef VORN_KIT_PREPARE_ITEM_MAKER_H_
#define VORN_KIT_PREPARE_ITEM_MAKER_H_

#include <cstddef>
#include <string>
#include <vector>

#include "kit/json/json.h"
#include "kit/prepare/source.h"
#include "kit/tensor/array.h"

namespace vorn::kit {

struct MadeItem {
  std::vector<std::byte> bytes;
  /// What somebody may want to know of it later, members of a manifest's item: of a picture
  /// "decoder", "pixelsXxh3_128", "geometry"; of all "remarks" where there are any.
  Json facts = Json::Object();
};

class ItemMaker {
 public:
  explicit ItemMaker(InputPlan plan) : plan_(std::move(plan)) {}

  /// Throws a Fault of kInput or kLimit that says what is wrong, without the file's name in front.
  [[nodiscard]] MadeItem Make(const SourceItem& item);

 private:
  MadeItem FromPicture(const SourceItem& item) const;
  MadeItem FromArray(const SourceItem& item);
  MadeItem FromRaw(const SourceItem& item) const;
  MadeItem FromNumbers(const SourceItem& item);
  MadeItem FromSignal(const SourceItem& item);
  [[nodiscard]] MadeItem FromRandom(uint64_t sample) const;
  MadeItem FromValues(const Array& array, const std::string& what) const;
  MadeItem FromPixels(const Array& array) const;
  const StoredTensor& Open(const SourceItem& item);

  InputPlan plan_;
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
