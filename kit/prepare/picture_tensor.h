// A picture on its way into a tensor, as a recipe has it.
#ifndef VORN_KIT_PREPARE_PICTURE_TENSOR_H_
#define VORN_KIT_PREPARE_PICTURE_TENSOR_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/model/model_description.h"
#include "kit/picture/decode.h"
#include "kit/picture/picture.h"
#include "kit/picture/resize.h"
#include "kit/prepare/byte_table.h"
#include "kit/prepare/recipe.h"
#include "kit/tensor/element_type.h"

namespace vorn::kit {

/// One item of an input that takes pictures.
struct PictureTarget {
  PictureSize size;
  size_t channels = 0;
  bool areChannelsFirst = false;  ///< [channels, height, width]; else [height, width, channels]
  ElementType type = ElementType::kFloat32;

  [[nodiscard]] uint64_t Bytes() const {
    return uint64_t{size.width} * size.height * channels * ElementBytes(type);
  }
};

/// What the input takes, by its shape and the recipe. A layout that neither tells is told by which
/// dimension could be one of channels. Throws a Fault of kModel that says what the shape is, and
/// what to put into the recipe.
[[nodiscard]] PictureTarget TargetOf(const TensorDescription& input, const Recipe& recipe);

/// Where the pixels of a tensor come from: to draw what a network found into the picture.
///
///     tensor = (picture − cut) · scale + placed, along each axis, in pixels
struct PictureGeometry {
  int orientation = 1;  ///< that was applied
  PictureSize picture;  ///< behind the orientation
  PictureSize resized;
  uint32_t cutLeft = 0;  ///< pixels of the resized picture that are left out
  uint32_t cutTop = 0;
  uint32_t placedLeft = 0;  ///< pixels of the tensor that are filled before it begins
  uint32_t placedTop = 0;
};

/// Makes one tensor after the other. Takes a picture while it is decoded, row by row, where the
/// recipe allows it: 8 bits without alpha, as it is stored, in a size that is resized by rows. Only
/// what the tensor holds is computed then, and the picture never is in memory as a whole.
class TensorMaker final : public RowTaker {
 public:
  TensorMaker(const Recipe& recipe, const PictureTarget& target);
  TensorMaker(const TensorMaker&) = delete;  // rows on their way hold on to it
  TensorMaker& operator=(const TensorMaker&) = delete;

  /// Where the next tensors are left; its room is used again where it is enough.
  void MakeInto(std::vector<std::byte>& bytes) { bytes_ = &bytes; }

  bool Begin(const PictureHead& head) override;
  void Take(const std::byte* rows, uint32_t count) override;

  /// Of the picture whose rows it took.
  [[nodiscard]] const PictureGeometry& Geometry() const { return geometry_; }

  /// Of a picture that is there as a whole. Throws a Fault of kInput that says what the recipe
  /// makes of the picture and what the target takes, or which value is none of its type.
  [[nodiscard]] PictureGeometry Make(Picture picture, int orientation);

 private:
  std::optional<PixelWindow> WindowOf(const PictureHead& head, const PictureSize& picture);
  bool SetSources(uint32_t channels);
  [[nodiscard]] std::byte* PlaceOf(uint32_t x, uint32_t y, size_t channel) const;
  void StoreRow(uint32_t x, uint32_t y, const uint8_t* row, size_t count);
  void FillAround(const PixelWindow& window);
  void StoreBytes(const Picture& picture);

  Recipe recipe_;
  PictureTarget target_;
  std::vector<ByteTable> tables_;                    ///< a channel each
  std::vector<std::array<bool, kByteValues>> fits_;  ///< which values the type holds
  std::vector<std::byte>* bytes_ = nullptr;
  PictureGeometry geometry_;
  std::unique_ptr<RowResizer> resizer_;
  size_t pixelStep_ = 0;         ///< of the rows that are stored
  std::vector<size_t> sources_;  ///< of each channel, the value of a pixel
};

/// One tensor, left in `bytes`. Throws as above.
[[nodiscard]] PictureGeometry MakeTensor(Picture picture, int orientation, const Recipe& recipe,
                                         const PictureTarget& target,
                                         std::vector<std::byte>& bytes);

/// The value of a channel behind these steps, each rounded to float32.
[[nodiscard]] float Computed(float value, std::span<const ValueStep> steps, size_t channel);

/// Why no picture of 8 bits could be stored: values between whole numbers, or beyond the type.
/// Empty if nothing is wrong.
[[nodiscard]] std::string WhyNotStored(const Recipe& recipe, ElementType type);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_PICTURE_TENSOR_H_
