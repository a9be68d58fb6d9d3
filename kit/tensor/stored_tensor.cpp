#include "kit/tensor/stored_tensor.h"

#include <algorithm>
#include <limits>

#include "kit/common/fault.h"
#include "kit/tensor/input_file.h"
#include "kit/tensor/number_lines.h"

namespace vorn::kit {

std::string TextOf(const Shape& shape) {
  if (shape.empty()) return "scalar";
  std::string text;
  for (const uint64_t size : shape) text += (text.empty() ? "" : "x") + std::to_string(size);
  return text;
}

std::string PlaceText(uint64_t index, const Shape& shape) {
  std::vector<uint64_t> place(shape.size());
  for (size_t axis = shape.size(); axis > 0; --axis) {
    const uint64_t size = std::max<uint64_t>(shape[axis - 1], 1);
    place[axis - 1] = index % size;
    index /= size;
  }
  std::string text;
  for (const uint64_t at : place) text += (text.empty() ? "" : ", ") + std::to_string(at);
  return "[" + text + "]";
}

std::optional<uint64_t> CountElements(const Shape& shape) {
  // With an empty dimension the others may be of any size.
  if (std::find(shape.begin(), shape.end(), 0U) != shape.end()) return 0;
  uint64_t count = 1;
  for (const uint64_t size : shape) {
    if (count > std::numeric_limits<uint64_t>::max() / size) return std::nullopt;
    count *= size;
  }
  return count;
}

FileHead ReadFileHead(const std::string& path, const std::string& what, uint64_t mostBytes) {
  const InputFile file(path, what);
  FileHead head{path, std::string(std::min(file.Bytes(), mostBytes), '\0'), file.Bytes()};
  file.ReadAt(0, std::as_writable_bytes(std::span(head.bytes)));
  return head;
}

StoredTensor OpenDump(const std::string& path) {
  const InputFile file(path, "the dump");
  if (file.Bytes() % sizeof(float) != 0) {
    file.Refuse("has " + std::to_string(file.Bytes()) +
                " bytes, no whole number of 32-bit floats; it was cut off, or is no dump");
  }
  StoredTensor tensor;
  tensor.path = path;
  tensor.elements = file.Bytes() / sizeof(float);
  return tensor;
}

StoredTensor OpenDumpText(const std::string& path) {
  StoredTensor tensor;
  tensor.path = path;
  tensor.isText = true;
  NumberLines lines(path, "the dump");
  float value = 0;
  while (lines.Next(value)) ++tensor.elements;
  return tensor;
}

}  // namespace vorn::kit
