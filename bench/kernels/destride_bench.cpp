// Removing the stride, against copying as many bytes as come out of it.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "output/destride.h"

namespace vorn::run {
namespace {

// A small output stays in the processor's nearest cache, a large one (255x76x76) does not.
constexpr RowShape kSmall{.rows = 8, .rowElements = 128, .lastDim = 125};
constexpr RowShape kLarge{.rows = 255 * 76, .rowElements = 80, .lastDim = 76};

template <typename Element>
void Ours(benchmark::State& state, const RowShape& shape) {
  const std::vector<Element> block(shape.rows * shape.rowElements, Element{3});
  ValueBuffer buffer;
  for (auto _ : state) {
    const auto values = RemoveStride<Element>(std::as_bytes(std::span(block)), shape, buffer);
    benchmark::DoNotOptimize(values.data());
    benchmark::ClobberMemory();
  }
}

void Floor(benchmark::State& state, const RowShape& shape) {
  const std::vector<float> from(shape.rows * shape.lastDim, 3.0F);
  std::vector<float> to(from.size());
  for (auto _ : state) {
    std::memcpy(to.data(), from.data(), from.size() * sizeof(float));
    benchmark::DoNotOptimize(to.data());
    benchmark::ClobberMemory();
  }
}

template <typename Element>
void Register(const std::string& type, const std::string& size, const RowShape& shape) {
  const std::string name = "destride|" + type + ", " + size + "|";
  benchmark::RegisterBenchmark((name + "ours").c_str(), Ours<Element>, shape);
  benchmark::RegisterBenchmark((name + "floor").c_str(), Floor, shape);
}

const bool kRegistered = [] {
  Register<float>("float32", "small", kSmall);
  Register<float>("float32", "large", kLarge);
  Register<int8_t>("int8", "small", kSmall);
  Register<int8_t>("int8", "large", kLarge);
  Register<uint16_t>("uint16", "small", kSmall);
  Register<uint16_t>("uint16", "large", kLarge);
  return true;
}();

}  // namespace
}  // namespace vorn::run
