#include "kit/prepare/item_maker.h"

#include <algorithm>
#include <cstring>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/picture/decode.h"
#include "kit/prepare/number_text.h"
#include "kit/prepare/picture_tensor.h"
#include "kit/prepare/stored_value.h"
#include "kit/tensor/input_file.h"
#include "kit/tensor/npz.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostItemBytes = uint64_t{4} << 30;

Json PairOf(uint64_t one, uint64_t other) { return Json::Array({one, other}); }

Json GeometryJson(const PictureGeometry& geometry) {
  return Json::Object({{"orientation", geometry.orientation},
                       {"picture", PairOf(geometry.picture.height, geometry.picture.width)},
                       {"resized", PairOf(geometry.resized.height, geometry.resized.width)},
                       {"cut", PairOf(geometry.cutTop, geometry.cutLeft)},
                       {"placed", PairOf(geometry.placedTop, geometry.placedLeft)}});
}

// Values that only need the same done to each of them.
std::vector<std::byte> WithValueSteps(const Array& array, const Recipe& recipe, ElementType type,
                                      const std::string& what) {
  Array floats{ElementType::kFloat32, array.shape, {}};
  floats.bytes.resize(array.Elements() * sizeof(float));
  std::vector<float> values = FloatsOf(array);
  for (const ValueStep& step : recipe.values) {
    if (step.by.size() != 1) {
      throw Fault(ExitStatus::kInput,
                  "the recipe has a number a channel, and the array is no picture of [height, "
                  "width, channels]");
    }
    for (float& value : values) value = Computed(value, {&step, 1}, 0);
  }
  if (!values.empty()) std::memcpy(floats.bytes.data(), values.data(), floats.bytes.size());
  return StoreArray(floats, type, recipe.quantisation, what);
}

std::optional<PixelType> PixelOf(ElementType type) {
  switch (type) {
    case ElementType::kUint8:
      return PixelType::kUint8;
    case ElementType::kUint16:
      return PixelType::kUint16;
    case ElementType::kFloat32:
      return PixelType::kFloat32;
    default:
      return std::nullopt;
  }
}

}  // namespace

MadeItem ItemMaker::Make(const SourceItem& item, std::optional<std::string_view> file) {
  if (!item.fault.empty()) throw Fault(ExitStatus::kInput, item.fault);
  MadeItem made;
  made.facts = MakeBytes(item, file);
  made.bytes = made_;
  return made;
}

Json ItemMaker::MakeBytes(const SourceItem& item, std::optional<std::string_view> file) {
  switch (item.kind) {
    case SourceKind::kPicture:
      return FromPicture(item, file);
    case SourceKind::kArray:
      return FromArray(item);
    case SourceKind::kRaw:
      return FromRaw(item);
    case SourceKind::kNumbers:
      return FromNumbers(item);
    case SourceKind::kSignal:
      return FromSignal(item);
    case SourceKind::kRandom:
    case SourceKind::kFlags:
      break;
  }
  return FromRandom(item.item.value_or(0));
}

Json ItemMaker::FromPicture(const SourceItem& item, std::optional<std::string_view> file) {
  Xxh3Stream hash;
  const ShowPixels add = [&](std::string_view pixels) { hash.Add(pixels); };
  TensorMaker& tensors = Tensors();
  DecodedPicture decoded = file ? DecodePicture(item.path, *file, {}, add, &tensors)
                                : DecodePictureFile(item.path, {}, add, &tensors);
  Json facts = Json::Object({{"decoder", decoded.decoder}, {"pixelsXxh3_128", hash.Digits()}});
  const PictureGeometry geometry =
      decoded.isTaken ? tensors.Geometry()
                      : tensors.Make(std::move(decoded.picture), decoded.orientation);
  facts.Set("geometry", GeometryJson(geometry));
  if (!decoded.remarks.empty()) facts.Set("remarks", Json::ArrayOf(decoded.remarks));
  return facts;
}

TensorMaker& ItemMaker::Tensors() {
  if (!tensors_) {
    tensors_ = std::make_unique<TensorMaker>(*plan_.recipe, TargetOf(plan_.input, *plan_.recipe));
  }
  tensors_->MakeInto(made_);
  return *tensors_;
}

const StoredTensor& ItemMaker::Open(const SourceItem& item) {
  const std::string name = item.path + '\0' + item.array;
  if (name != openedName_) {
    opened_ = item.array.empty() ? OpenTensor(item.path) : ArrayArchive(item.path).Open(item.array);
    openedName_ = name;
  }
  return opened_;
}

Json ItemMaker::FromArray(const SourceItem& item) {
  const StoredTensor& tensor = Open(item);
  return FromValues(
      item.item ? ReadItem(tensor, *item.item, kMostItemBytes) : ReadArray(tensor, kMostItemBytes),
      "the array");
}

Json ItemMaker::FromValues(const Array& array, const std::string& what) {
  const ArrayFit fit = FitOf(array.shape, plan_);
  if (fit == ArrayFit::kPicture) return FromPixels(array);
  if (fit != ArrayFit::kWhole) {
    throw Fault(ExitStatus::kInput, "is " + TextOf(array.shape) + ", and the input takes " +
                                        ShapeText(plan_.input.shape));
  }
  made_ = plan_.recipe ? WithValueSteps(array, *plan_.recipe, plan_.Type(), what)
                       : StoreArray(array, plan_.Type(), std::nullopt, what);
  return Json::Object();
}

Json ItemMaker::FromPixels(const Array& array) {
  const auto type = PixelOf(array.type);
  const size_t channels = array.shape.size() == 2 ? 1 : array.shape[2];
  if (!type || array.shape[0] > UINT16_MAX || array.shape[1] > UINT16_MAX) {
    throw Fault(ExitStatus::kInput, "is " + TextOf(array.shape) + " of " +
                                        std::string(ElementName(array.type)) +
                                        ", and pictures are uint8, uint16 or float32, of at most "
                                        "65535x65535");
  }
  if (array.bytes.empty()) throw Fault(ExitStatus::kInput, "is a picture without pixels");
  Picture picture{.width = static_cast<uint32_t>(array.shape[1]),
                  .height = static_cast<uint32_t>(array.shape[0]),
                  .channels = static_cast<uint32_t>(channels),
                  .type = *type,
                  .pixels = {array.bytes.begin(), array.bytes.end()}};
  const PictureGeometry geometry = Tensors().Make(std::move(picture), 1);
  return Json::Object({{"geometry", GeometryJson(geometry)}});
}

Json ItemMaker::FromRaw(const SourceItem& item) {
  const InputFile file(item.path, "the values");
  const uint64_t takes = plan_.ItemBytes();
  const uint64_t bytes = item.item ? takes : std::min(takes, file.Bytes());
  if (bytes > kMostItemBytes) {
    throw Fault(ExitStatus::kLimit, "takes " + SizeText(bytes) + ", more than is read at once");
  }
  made_.resize(bytes);
  file.ReadAt(item.item.value_or(0) * takes, made_);
  return Json::Object();
}

Json ItemMaker::FromNumbers(const SourceItem& item) {
  if (item.path != numbersPath_) {
    numbers_ = ReadNumberText(item.path, kMostItemBytes);
    numbersPath_ = item.path;
  }
  if (!item.item) return FromValues(numbers_, "the text");
  // A row, or several.
  const uint64_t rows = numbers_.shape.front();
  const size_t bytes = numbers_.bytes.size() / rows;
  Array row{numbers_.type, Shape(numbers_.shape.begin() + 1, numbers_.shape.end()), {}};
  const auto begin = numbers_.bytes.begin() + static_cast<std::ptrdiff_t>(*item.item * bytes);
  row.bytes.assign(begin, begin + static_cast<std::ptrdiff_t>(bytes));
  return FromValues(row, "the text");
}

Json ItemMaker::FromSignal(const SourceItem& item) {
  if (item.path != framesPath_) {
    frames_ = ReadFrames(item.path, plan_);
    framesPath_ = item.path;
  }
  uint64_t first = item.item.value_or(0);
  uint64_t count = item.item ? 1 : frames_.count;
  if (plan_.isSequence) {
    count = SplitIntoSequences(frames_.count, plan_.MostFrames()).at(first);
    first *= plan_.MostFrames();
  }
  Array array{ElementType::kFloat32, {frames_.window}, {}};
  if (plan_.isSequence || !item.item) array.shape = {count, frames_.window};
  const std::span<const float> values(frames_.values.data() + first * frames_.window,
                                      count * frames_.window);
  const auto bytes = std::as_bytes(values);
  array.bytes.assign(bytes.begin(), bytes.end());
  return FromValues(array, "the signal");
}

Json ItemMaker::FromRandom(uint64_t sample) {
  const uint64_t elements = plan_.ItemBytes() / ElementBytes(plan_.Type());
  if (elements > kMostItemBytes / sizeof(double)) {
    throw Fault(ExitStatus::kLimit, "are more numbers than are made at once");
  }
  Array array{ElementType::kFloat64, {elements}, {}};
  array.bytes.resize(elements * sizeof(double));
  RandomSeries series(*plan_.random, plan_.random->series.value_or(plan_.input.name), sample);
  series.Fill({reinterpret_cast<double*>(array.bytes.data()), elements});
  made_ = StoreArray(array, plan_.Type(), std::nullopt, "the series of random numbers");
  return Json::Object();
}

}  // namespace vorn::kit
