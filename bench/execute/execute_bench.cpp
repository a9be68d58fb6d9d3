// Measures vorn_mdl_execute against the bare session that it ends in.
//
//     execute-bench CONFIG.json OUT.json SECONDS CASE=MODEL.onnx...
//
// A case is measured for SECONDS. Both sides load the model anew several times, because where the
// weights and the intermediate tensors come to lie in memory speeds a session up or slows it down
// by some percent for all its life. After each load they take turns, a few executions at a time,
// and a turn of the one is compared with the next turn of the other. The time is the thread's own,
// so that other programs on the machine disturb little.
//
// For each case a second comparison tells how far the figures can be trusted: the bare session
// against another bare session, which is printed and not written.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "execute/bare_session.h"
#include "execute/vorn_session.h"

namespace {

constexpr int kLoads = 10;             // of each model, on either side
constexpr double kTurnSeconds = 1e-3;  // at least one execution, though
constexpr uint32_t kSeed = 1;

struct Comparison {
  double floor = 0;  ///< seconds an execution, median
  double ours = 0;
  double ratio = 0;  ///< the median of the turns' ratios
  size_t runs = 0;   ///< executions of each
};

double ThreadSeconds() {
  timespec now = {};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

template <typename Side>
double SecondsOf(Side& side, size_t executions) {
  const double start = ThreadSeconds();
  for (size_t i = 0; i < executions; ++i) side.Run();
  return (ThreadSeconds() - start) / static_cast<double>(executions);
}

/// Gathers the turns of two sides over all loads.
class Contest {
 public:
  /// Warms both up, then lets them take turns for `seconds`.
  template <typename Floor, typename Ours>
  void Hold(Floor& floor, Ours& ours, double seconds) {
    SecondsOf(ours, 2);
    const double once = std::min(SecondsOf(floor, 5), SecondsOf(floor, 5));
    const size_t executions = std::max<size_t>(1, static_cast<size_t>(kTurnSeconds / once));
    const size_t turns = std::max<size_t>(
        2, static_cast<size_t>(seconds / 2 / once / static_cast<double>(executions)));
    for (size_t turn = 0; turn < turns; ++turn) {
      const bool isFloorFirst = turn % 2 == 0;  // what the first leaves in the caches is the same
      const double first =
          isFloorFirst ? SecondsOf(floor, executions) : SecondsOf(ours, executions);
      const double second =
          isFloorFirst ? SecondsOf(ours, executions) : SecondsOf(floor, executions);
      floors_.push_back(isFloorFirst ? first : second);
      ours_.push_back(isFloorFirst ? second : first);
      ratios_.push_back(ours_.back() / floors_.back());
    }
    runs_ += turns * executions;
  }

  Comparison Result() const {
    return {
        .floor = Median(floors_), .ours = Median(ours_), .ratio = Median(ratios_), .runs = runs_};
  }

 private:
  std::vector<double> floors_;
  std::vector<double> ours_;
  std::vector<double> ratios_;
  size_t runs_ = 0;
};

std::vector<std::byte> ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  const std::vector<char> text((std::istreambuf_iterator<char>(file)),
                               std::istreambuf_iterator<char>());
  std::vector<std::byte> bytes(text.size());
  std::memcpy(bytes.data(), text.data(), text.size());
  return bytes;
}

/// Values from 0 to 1, or bytes from 0 to 16.
void FillInput(const DenseTensor& tensor) {
  std::mt19937 random(kSeed);
  for (size_t at = 0; at < tensor.bytes; at += tensor.elementBytes) {
    const uint32_t value = static_cast<uint32_t>(random()) % 17;
    const float scaled = static_cast<float>(value) / 16;
    if (tensor.elementBytes == 1) {
      tensor.data[at] = static_cast<std::byte>(value);
    } else {
      std::memcpy(tensor.data + at, &scaled, sizeof(scaled));
    }
  }
}

uint64_t RowBytes(const DenseTensor& tensor) {
  return static_cast<uint64_t>(tensor.dims.back()) * tensor.elementBytes;
}

/// The same input on both sides, and the same output demanded to the last bit.
void Agree(const BareSession& bare, VornSession& ours) {
  ours.PutInput({bare.input().data, bare.input().bytes}, RowBytes(bare.input()));
  ours.Run();
  const std::vector<std::byte> output = ours.TakeOutput(RowBytes(bare.output()));
  if (output.size() != bare.output().bytes ||
      std::memcmp(output.data(), bare.output().data, output.size()) != 0) {
    throw std::runtime_error("the two sides do not agree on the output");
  }
}

struct Measured {
  Comparison ours;
  Comparison noise;
  bool isPadded = false;
};

Measured Measure(Ort::Env& env, const std::string& model, double seconds) {
  const std::vector<std::byte> image = ReadFile(model);
  Contest contest;
  Contest noise;
  Measured measured;
  for (int load = 0; load < kLoads; ++load) {
    BareSession bare(env, image);
    BareSession other(env, image);
    VornSession ours(image);
    FillInput(bare.input());
    FillInput(other.input());
    bare.Run();
    Agree(bare, ours);
    measured.isPadded = ours.IsInputPadded(RowBytes(bare.input()));
    contest.Hold(bare, ours, seconds / kLoads);
    noise.Hold(bare, other, seconds / 4 / kLoads);
  }
  measured.ours = contest.Result();
  measured.noise = noise.Result();
  return measured;
}

void Print(const std::string& name, const Measured& measured) {
  std::printf("%-14s input %s  bare %9.4f ms  ours %9.4f ms  ratio %.4f  (bare to bare %.4f)\n",
              name.c_str(), measured.isPadded ? "padded" : "dense ", 1e3 * measured.ours.floor,
              1e3 * measured.ours.ours, measured.ours.ratio, measured.noise.ratio);
  std::fflush(stdout);
}

void Write(std::FILE* out, const std::string& name, const Comparison& result, bool isFirst) {
  std::fprintf(out,
               "%s{\"row\": \"execute\", \"case\": \"%s\", \"ratio\": %.4f, \"floor\": %.6g, "
               "\"ours\": %.6g, \"unit\": \"ms\", \"runs\": %zu}",
               isFirst ? "[" : ",\n ", name.c_str(), result.ratio, 1e3 * result.floor,
               1e3 * result.ours, result.runs);
}

void Run(const char* config, const char* outPath, double seconds,
         const std::vector<std::string>& cases) {
  const VornRuntime runtime(config);
  UseLoadedEngine();
  Ort::Env env(ORT_LOGGING_LEVEL_FATAL, "bare");
  std::FILE* out = std::fopen(outPath, "w");
  if (out == nullptr) throw std::runtime_error(std::string("cannot write ") + outPath);
  for (const std::string& one : cases) {
    const std::string name = one.substr(0, one.find('='));
    const Measured measured = Measure(env, one.substr(name.size() + 1), seconds);
    Print(name, measured);
    Write(out, name, measured.ours, &one == &cases.front());
  }
  std::fputs("]\n", out);
  std::fclose(out);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) {
    std::fprintf(stderr, "execute-bench CONFIG.json OUT.json SECONDS CASE=MODEL.onnx...\n");
    return 2;
  }
  try {
    Run(argv[1], argv[2], std::stod(argv[3]), {argv + 4, argv + argc});
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "execute-bench: %s\n", e.what());
    return 1;
  }
}
