#include "kit/tensor/tensor_reader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostTextElements = 1 << 28;

bool IsPlain(const Quantisation& quantisation) {
  return quantisation.scale == 1 && quantisation.zeroPoint == 0;
}

void ReadBits(StoredTensor::Bits bits, const std::string& path, std::span<float> values) {
  for (float& value : values) {
    const bool isWhole = value >= 0 && value <= 65535 && value == std::floor(value);
    if (!isWhole) {
      throw Fault(ExitStatus::kInput,
                  "the dump '" + Printable(path) +
                      "' holds other values than the bits of floats of 16 bits; the model's "
                      "description, or the type in the map, is not that of this dump");
    }
    const auto pattern = static_cast<uint16_t>(value);
    value = bits == StoredTensor::Bits::kFloat16 ? Float16Value(pattern) : Bfloat16Value(pattern);
  }
}

void Dequantise(const Quantisation& quantisation, std::span<float> values) {
  for (float& value : values) {
    value = static_cast<float>((static_cast<double>(value) - quantisation.zeroPoint) *
                               quantisation.scale);
  }
}

}  // namespace

double Quantisation::Step() const {
  double step = scales.empty() ? std::abs(scale) : 0;
  for (const double one : scales) step = std::max(step, std::abs(one));
  return step;
}

ElementOrder ElementOrder::Of(const StoredTensor& tensor) {
  ElementOrder order;
  order.shape = tensor.shape.value_or(Shape{tensor.elements});
  order.strides.resize(order.shape.size());
  uint64_t stride = 1;
  for (size_t i = 0; i < order.shape.size(); ++i) {
    const size_t axis = tensor.isColumnMajor ? i : order.shape.size() - 1 - i;
    order.strides[axis] = stride;
    stride *= order.shape[axis];
  }
  return order;
}

ElementOrder ElementOrder::Slice(uint64_t item) const {
  ElementOrder slice = *this;
  slice.first += item * slice.strides.front();
  slice.shape.erase(slice.shape.begin());
  slice.strides.erase(slice.strides.begin());
  return slice;
}

ElementOrder ElementOrder::Permuted(const std::vector<size_t>& order) const {
  ElementOrder permuted = *this;
  for (size_t i = 0; i < order.size(); ++i) {
    permuted.shape[i] = shape.at(order[i]);
    permuted.strides[i] = strides.at(order[i]);
  }
  return permuted;
}

bool ElementOrder::IsDense() const {
  uint64_t stride = 1;
  for (size_t i = shape.size(); i > 0; --i) {
    if (shape[i - 1] == 1) continue;
    if (strides[i - 1] != stride) return false;
    stride *= shape[i - 1];
  }
  return true;
}

TensorReader::TensorReader(StoredTensor tensor, ElementOrder order,
                           const Quantisation& quantisation)
    : tensor_(std::move(tensor)), order_(std::move(order)), quantisation_(quantisation) {
  elements_ = CountElements(order_.shape).value_or(0);
  isDense_ = order_.IsDense();
  if (tensor_.isText && (!isDense_ || order_.first != 0)) Decode();
  if (tensor_.decoded != nullptr) {
    // Read as any other values in memory.
    tensor_.type = ElementType::kFloat32;
    tensor_.isSwapped = false;
    tensor_.offsetBytes = 0;
  } else if (tensor_.unpacked != nullptr) {
    // As many as there are elements: whoever unpacked them has seen to that.
  } else if (tensor_.isText) {
    lines_ = std::make_unique<NumberLines>(tensor_.path, "the dump");
  } else {
    file_ = std::make_unique<InputFile>(tensor_.path, "the tensor");
    const uint64_t bytes = file_->Bytes() - std::min(file_->Bytes(), tensor_.offsetBytes);
    if (bytes / ElementBytes(tensor_.type) < tensor_.elements) {
      file_->Refuse("became shorter since it was looked at");
    }
  }
  index_.assign(order_.shape.size(), 0);
}

void TensorReader::Decode() {
  if (tensor_.elements > kMostTextElements) {
    throw Fault(ExitStatus::kLimit, "the dump '" + Printable(tensor_.path) +
                                        "' is too large a text to be read in another order; give "
                                        "the .bin beside it");
  }
  NumberLines lines(tensor_.path, "the dump");
  auto values = std::make_shared<std::vector<float>>();
  float value = 0;
  while (lines.Next(value)) values->push_back(value);
  values->resize(tensor_.elements);
  tensor_.decoded = std::move(values);
  tensor_.isText = false;
}

size_t TensorReader::Next(std::span<float> room) {
  room = room.first(std::min<uint64_t>(room.size(), elements_ - done_));
  if (room.empty()) return 0;
  if (lines_ != nullptr) {
    ReadText(room);
  } else if (isDense_) {
    ReadDense(room);
  } else {
    ReadScattered(room);
  }
  const uint64_t from = order_.first + done_;
  done_ += room.size();
  if (tensor_.bits != StoredTensor::Bits::kNone) ReadBits(tensor_.bits, tensor_.path, room);
  if (!quantisation_.scales.empty()) {
    if (isDense_) {
      places_.resize(room.size());
      std::iota(places_.begin(), places_.end(), from);
    }
    DequantiseChannels(room);
  } else if (!IsPlain(quantisation_)) {
    Dequantise(quantisation_, room);
  }
  return room.size();
}

void TensorReader::DequantiseChannels(std::span<float> room) const {
  for (size_t i = 0; i < room.size(); ++i) {
    const size_t channel = places_[i] / quantisation_.stride % quantisation_.scales.size();
    room[i] =
        static_cast<float>((static_cast<double>(room[i]) - quantisation_.zeroPoints[channel]) *
                           quantisation_.scales[channel]);
  }
}

void TensorReader::ReadText(std::span<float> room) {
  for (float& value : room) {
    if (!lines_->Next(value)) {
      throw Fault(ExitStatus::kInput,
                  "the dump '" + Printable(tensor_.path) + "' became shorter while it was read");
    }
  }
}

void TensorReader::ReadDense(std::span<float> room) {
  const uint64_t from = order_.first + done_;
  if (tensor_.decoded != nullptr) {
    std::copy_n(tensor_.decoded->begin() + static_cast<std::ptrdiff_t>(from), room.size(),
                room.begin());
    return;
  }
  const size_t size = ElementBytes(tensor_.type);
  if (tensor_.unpacked != nullptr) {
    ToFloats(tensor_.type, tensor_.isSwapped, tensor_.unpacked.get() + from * size, room);
    return;
  }
  const uint64_t offset = tensor_.offsetBytes + from * size;
  if (tensor_.type == ElementType::kFloat32 && !tensor_.isSwapped) {
    file_->ReadAt(offset, std::as_writable_bytes(room));
    return;
  }
  bytes_.resize(room.size() * size);
  file_->ReadAt(offset, bytes_);
  ToFloats(tensor_.type, tensor_.isSwapped, bytes_.data(), room);
}

void TensorReader::ReadScattered(std::span<float> room) {
  const std::byte* source = tensor_.unpacked.get();
  if (tensor_.decoded != nullptr) {
    source = std::as_bytes(std::span(*tensor_.decoded)).data();
  } else if (source == nullptr) {
    source = file_->Map().data() + tensor_.offsetBytes;
  }
  const size_t size = ElementBytes(tensor_.type);
  bytes_.resize(room.size() * size);
  uint64_t place = order_.first;
  for (size_t axis = 0; axis < index_.size(); ++axis) place += index_[axis] * order_.strides[axis];
  const bool areNoted = !quantisation_.scales.empty();
  places_.resize(areNoted ? room.size() : 0);
  for (size_t i = 0; i < room.size(); ++i) {
    if (areNoted) places_[i] = place;
    std::memcpy(bytes_.data() + i * size, source + place * size, size);
    // To the next element, as a counter of many digits; behind the last one to the first again.
    for (size_t axis = index_.size(); axis > 0; --axis) {
      const uint64_t stride = order_.strides[axis - 1];
      place += stride;
      if (++index_[axis - 1] < order_.shape[axis - 1]) break;
      place -= stride * order_.shape[axis - 1];
      index_[axis - 1] = 0;
    }
  }
  ToFloats(tensor_.type, tensor_.isSwapped, bytes_.data(), room);
}

std::vector<float> ReadAll(TensorReader& reader, uint64_t mostElements) {
  if (reader.Elements() > mostElements) {
    throw Fault(ExitStatus::kLimit, "a tensor of " + std::to_string(reader.Elements()) +
                                        " elements is too large to be held in memory here");
  }
  std::vector<float> values(reader.Elements());
  size_t done = 0;
  while (const size_t got = reader.Next(std::span(values).subspan(done))) done += got;
  return values;
}

}  // namespace vorn::kit
