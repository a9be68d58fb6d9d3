// The files that vorn judge reads: the first byte says which reader, the rest is the file. It is
// refused with a line that a person can read, or as many values come out as it was said to hold.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/memory_file.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/judge/cause.h"
#include "kit/judge/labels.h"
#include "kit/judge/map.h"
#include "kit/judge/rules.h"
#include "kit/tensor/npy.h"
#include "kit/tensor/npz.h"
#include "kit/tensor/onnx_tensor.h"
#include "kit/tensor/tensor_reader.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

void CheckTensor(const kit::StoredTensor& tensor, size_t fileBytes) {
  const kit::ElementOrder order = kit::ElementOrder::Of(tensor);
  Require(kit::CountElements(order.shape) == tensor.elements, "the shape holds all elements");
  Require(tensor.elements <= fileBytes, "an element takes a byte at least");
  kit::TensorReader whole(tensor, order);
  const std::vector<float> values = kit::ReadAll(whole, fileBytes);
  Require(values.size() == tensor.elements, "as many values as elements");
  if (order.shape.size() < 2 || tensor.elements == 0) return;
  // The last dimension first, and items alone.
  std::vector<size_t> axes{order.shape.size() - 1};
  for (size_t axis = 0; axis + 1 < order.shape.size(); ++axis) axes.push_back(axis);
  kit::TensorReader permuted(tensor, order.Permuted(axes));
  Require(kit::ReadAll(permuted, fileBytes).size() == values.size(), "another order, as many");
  kit::TensorReader last(tensor, order.Slice(order.shape.front() - 1));
  const std::vector<float> item = kit::ReadAll(last, fileBytes);
  Require(std::memcmp(item.data(), values.data() + values.size() - item.size(),
                      item.size() * sizeof(float)) == 0,
          "the last item is the end of all");
}

void ReadNpy(const std::string& bytes) {
  const MemoryFile file(bytes);
  CheckTensor(kit::OpenNpy(file.Path()), bytes.size());
}

// What an array is unpacked to may be more than the file.
void ReadArchive(const std::string& bytes) {
  constexpr uint64_t kMostUnpacked = 1 << 20;
  const MemoryFile file(bytes);
  const kit::ArrayArchive archive(file.Path());
  for (const std::string& name : archive.Names()) {
    CheckTensor(archive.Open(name, kMostUnpacked), kMostUnpacked);
  }
}

void ReadOnnx(const std::string& bytes) {
  const MemoryFile file(bytes);
  CheckTensor(kit::OpenOnnxTensor(file.Path()), bytes.size());
}

void ReadLines(const std::string& bytes) {
  const MemoryFile file(bytes);
  CheckTensor(kit::OpenDumpText(file.Path()), bytes.size());
}

void ReadMap(const std::string& text) {
  for (const kit::MappedOutput& output : kit::ParseMap(text, "the map").outputs) {
    if (output.expected.layout.empty()) continue;
    kit::StoredTensor tensor;
    tensor.shape = kit::Shape(output.expected.layout.size(), 2);
    (void)kit::BroughtIntoLayout(kit::ElementOrder::Of(tensor), output.expected.layout,
                                 output.actual.layout, "the map");
  }
}

void ReadRules(const std::string& text) {
  const kit::OutputRules rules =
      kit::RulesFor(kit::ParseRules(text, "the rules"), "prob", kit::ElementType::kFloat32, {});
  kit::CensusTaker taker(rules.tolerance.tolerance, 3);
  const std::vector<float> actual{1, NAN, 3};
  const std::vector<float> expected{1, 2, 3};
  taker.Take(actual, expected);
  Require(!kit::BrokenRules(rules, taker.Result(), {}).empty(), "no rules let NaN pass");
}

void ReadLabels(const std::string& text) { (void)kit::ParseLabels(text, "the labels", "."); }

// Two tensors of a small shape, whatever their values are.
void FindCause(const std::string& bytes) {
  if (bytes.size() < 4) return;
  std::vector<float> values(bytes.size() / sizeof(float));
  std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
  const size_t half = std::min<size_t>(values.size() / 2, 256);
  kit::CauseQuestion question;
  question.actual = std::span(values).first(half);
  question.expected = std::span(values).subspan(half, half);
  question.before = question.expected;
  const auto rows = static_cast<uint64_t>(static_cast<uint8_t>(bytes[0]) % 8 + 1);
  question.shape = {1, rows, half / rows};
  for (const kit::Cause& cause : kit::FindCauses(question)) {
    Require(cause.certainty > 0 && cause.certainty <= 1, "a certainty from 0 to 1");
    Require(!cause.id.empty() && !cause.text.empty(), "a cause has a name and a text");
  }
}

constexpr std::array kFileReaders{ReadNpy,   ReadOnnx,   ReadLines, ReadMap,
                                  ReadRules, ReadLabels, FindCause, ReadArchive};

}  // namespace

void JudgeFiles(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const std::string rest(bytes.begin() + 1, bytes.end());
  try {
    kFileReaders[bytes[0] % kFileReaders.size()](rest);
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
  } catch (const std::exception& error) {
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
