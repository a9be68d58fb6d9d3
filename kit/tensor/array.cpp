#include "kit/tensor/array.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/tensor/input_file.h"
#include "kit/tensor/number_lines.h"
#include "kit/tensor/tensor_reader.h"

namespace vorn::kit {
namespace {

uint64_t BytesOf(const StoredTensor& tensor, uint64_t elements, uint64_t mostBytes) {
  const size_t size = tensor.isText ? sizeof(float) : ElementBytes(tensor.type);
  if (elements <= mostBytes / size) return elements * size;
  throw Fault(ExitStatus::kLimit, Quoted(tensor.path) + " holds " + std::to_string(elements) +
                                      " elements of " + std::to_string(size) +
                                      " bytes, more than the " + SizeText(mostBytes) +
                                      " that are read at once");
}

// Values that are not in the file as they are, all of them floats.
void TakeFloats(const StoredTensor& tensor, const ElementOrder& order, Array& array) {
  array.type = ElementType::kFloat32;
  TensorReader reader(tensor, order);
  std::span<float> room(reinterpret_cast<float*>(array.bytes.data()), array.Elements());
  while (!room.empty()) {
    const size_t taken = reader.Next(room);
    if (taken == 0) break;
    room = room.subspan(taken);
  }
}

void SwapBytes(size_t size, std::span<std::byte> bytes) {
  if (size == 1) return;
  for (size_t at = 0; at < bytes.size(); at += size) {
    std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                 bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
  }
}

// Element by element, in the order of the indices.
void Gather(const ElementOrder& order, size_t size, const std::byte* from,
            std::span<std::byte> to) {
  std::vector<uint64_t> index(order.shape.size(), 0);
  uint64_t place = order.first;
  for (size_t at = 0; at < to.size(); at += size) {
    std::memcpy(&to[at], from + place * size, size);
    for (size_t axis = index.size(); axis > 0; --axis) {
      place += order.strides[axis - 1];
      if (++index[axis - 1] < order.shape[axis - 1]) break;
      place -= order.strides[axis - 1] * order.shape[axis - 1];
      index[axis - 1] = 0;
    }
  }
}

Array ReadInOrder(const StoredTensor& tensor, const ElementOrder& order, uint64_t mostBytes) {
  Array array;
  array.type = tensor.type;
  array.shape = order.shape;
  const std::optional<uint64_t> elements = CountElements(order.shape);
  array.bytes.resize(BytesOf(tensor, elements.value_or(UINT64_MAX), mostBytes));
  if (tensor.isText || tensor.decoded != nullptr || tensor.bits != StoredTensor::Bits::kNone) {
    TakeFloats(tensor, order, array);
    return array;
  }
  const size_t size = ElementBytes(tensor.type);
  if (tensor.unpacked != nullptr) {
    if (order.IsDense()) {
      std::copy_n(tensor.unpacked.get() + order.first * size, array.bytes.size(),
                  array.bytes.begin());
    } else {
      Gather(order, size, tensor.unpacked.get(), array.bytes);
    }
    if (tensor.isSwapped) SwapBytes(size, array.bytes);
    return array;
  }
  InputFile file(tensor.path, "the tensor");
  const uint64_t there = file.Bytes() - std::min(file.Bytes(), tensor.offsetBytes);
  if (there / size < tensor.elements) file.Refuse("became shorter since it was looked at");
  if (order.IsDense()) {
    file.ReadAt(tensor.offsetBytes + order.first * size, array.bytes);
  } else if (!array.bytes.empty()) {
    Gather(order, size, file.Map().data() + tensor.offsetBytes, array.bytes);
  }
  if (tensor.isSwapped) SwapBytes(size, array.bytes);
  return array;
}

}  // namespace

Array ReadItem(const StoredTensor& tensor, uint64_t item, uint64_t mostBytes) {
  const ElementOrder whole = ElementOrder::Of(tensor);
  if (whole.shape.empty() || item >= whole.shape.front()) {
    throw Fault(ExitStatus::kInput, Quoted(tensor.path) + " has no item " + std::to_string(item) +
                                        "; its shape is " + TextOf(whole.shape));
  }
  return ReadInOrder(tensor, whole.Slice(item), mostBytes);
}

Array ReadArray(const StoredTensor& tensor, uint64_t mostBytes) {
  return ReadInOrder(tensor, ElementOrder::Of(tensor), mostBytes);
}

}  // namespace vorn::kit
