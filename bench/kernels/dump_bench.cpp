// The files of a dump, against the bare writing of the same bytes.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <bit>
#include <fstream>
#include <iomanip>
#include <random>
#include <vector>

#include "common/file.h"
#include "kernels/scratch_file.h"
#include "output/float_text.h"
#include "output/text_lines.h"

namespace vorn::run {
namespace {

using Values = std::vector<float>;

constexpr size_t kValues = 2'000'000;
constexpr size_t kWriteBytes = 64 * 1024;

// --- what is dumped ---

template <typename Next>
Values Make(Next next) {
  std::mt19937 random(1);
  Values values(kValues);
  for (float& value : values) value = next(random);
  return values;
}

Values Softmax() {  // of 1,000 classes: most of them next to nothing
  std::normal_distribution<float> logits(0, 4);
  Values values = Make([&](std::mt19937& random) { return std::exp(logits(random)); });
  for (size_t start = 0; start < kValues; start += 1000) {
    float sum = 0;
    for (size_t i = 0; i < 1000; ++i) sum += values[start + i];
    for (size_t i = 0; i < 1000; ++i) values[start + i] /= sum;
  }
  return values;
}

Values Normal() {
  std::normal_distribution<float> normal(0, 10);
  return Make(normal);
}

Values Int8() {
  return Make([](std::mt19937& random) {
    return static_cast<float>(static_cast<int8_t>(random() & 0xFF));
  });
}

Values Relu() {
  Values values = Normal();
  for (float& value : values) value = std::max(value, 0.0F);
  return values;
}

Values OfMagnitudes(float leastPower, float mostPower) {
  std::uniform_real_distribution<float> exponent(leastPower, mostPower);
  return Make([&](std::mt19937& random) {
    const float magnitude = random() % 16 == 0 ? 0 : std::pow(10.0F, exponent(random));
    return random() % 2 == 0 ? magnitude : -magnitude;
  });
}

const Values& ValuesOf(int64_t kind) {
  static const Values kAll[] = {Softmax(),          Normal(), Int8(), Relu(), OfMagnitudes(-12, 5),
                                OfMagnitudes(-8, 8)};
  return kAll[kind];
}
constexpr const char* kKinds[] = {"softmax", "normal x10", "int8",
                                  "relu",    "mixed",      "mixed, to 1e8"};

// --- the ways ---

int OpenFresh(const bench::ScratchFile& file) {
  return open(file.Path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
}

// A fresh file each time; removing the one before is not counted.
template <typename Write>
void WriteFreshFiles(benchmark::State& state, Write write) {
  const bench::ScratchFile file;
  for (auto _ : state) {
    const int fd = OpenFresh(file);
    write(fd);
    close(fd);
    state.PauseTiming();
    file.Remove();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kValues));
}

void TextOurs(benchmark::State& state) {
  const Values& values = ValuesOf(state.range(0));
  WriteFreshFiles(state, [&](int fd) { WriteTextLines(fd, values); });
}

std::string TextOf(const Values& values) {
  std::string text;
  char line[kMaxFloatText];
  for (const float value : values) {
    text.append(line, WriteFloatText(value, line)) += '\n';
  }
  return text;
}

void TextFloor(benchmark::State& state) {
  const std::string text = TextOf(ValuesOf(state.range(0)));
  WriteFreshFiles(state, [&](int fd) {
    for (size_t at = 0; at < text.size(); at += kWriteBytes) {
      bench::WriteAll(fd, text.data() + at, std::min(kWriteBytes, text.size() - at));
    }
  });
}

void TextStream(benchmark::State& state) {
  const Values& values = ValuesOf(state.range(0));
  const bench::ScratchFile file;
  for (auto _ : state) {
    std::ofstream stream(file.Path());
    for (const float value : values) {
      stream << std::fixed << std::setprecision(16) << value << std::endl;
    }
  }
}

void BinaryOurs(benchmark::State& state) {
  const Values& values = ValuesOf(state.range(0));
  WriteFreshFiles(state,
                  [&](int fd) { WriteFully(fd, values.data(), values.size() * sizeof(float)); });
}

void BinaryFloor(benchmark::State& state) {
  const Values& values = ValuesOf(state.range(0));
  WriteFreshFiles(state, [&](int fd) {
    bench::WriteAll(fd, reinterpret_cast<const char*>(values.data()),
                    values.size() * sizeof(float));
  });
}

void Register(const std::string& name, void (*way)(benchmark::State&), int64_t kind) {
  benchmark::RegisterBenchmark(name.c_str(), way)->Arg(kind)->Unit(benchmark::kMillisecond);
}

const bool kRegistered = [] {
  for (int64_t kind = 0; kind < static_cast<int64_t>(std::size(kKinds)); ++kind) {
    Register(std::string("text|") + kKinds[kind] + "|ours", TextOurs, kind);
    Register(std::string("text|") + kKinds[kind] + "|floor", TextFloor, kind);
  }
  Register("text-stream|softmax|ours", TextOurs, 0);
  Register("text-stream|softmax|floor", TextStream, 0);
  Register("binary||ours", BinaryOurs, 0);
  Register("binary||floor", BinaryFloor, 0);
  return true;
}();

}  // namespace
}  // namespace vorn::run
