#include "judge/faults.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <set>

#include "kit/judge/census.h"
#include "kit/tensor/element_type.h"
#include "kit/tensor/npy.h"
#include "kit/tensor/tensor_reader.h"

namespace vorn::bench {
namespace {

using kit::Shape;
using Values = std::vector<float>;
using Random = std::mt19937_64;

uint64_t Below(Random& random, uint64_t end) { return random() % std::max<uint64_t>(end, 1); }

double Uniform(Random& random, double from, double to) {
  return std::uniform_real_distribution<double>(from, to)(random);
}

float Rms(const Values& values) {
  double sum = 0;
  for (const float value : values) sum += static_cast<double>(value) * static_cast<double>(value);
  return static_cast<float>(std::sqrt(sum / static_cast<double>(values.size())));
}

// As another order of summing leaves it.
Values WithNoise(const Values& values, double relative, Random& random) {
  std::normal_distribution<double> normal;
  // Sums near 0 are off by what was summed; what an activation made of them is off in proportion.
  const bool isSum = *std::min_element(values.begin(), values.end()) < 0;
  const double absolute = isSum ? relative * 0.3 * static_cast<double>(Rms(values)) : 0;
  Values noisy;
  for (const float value : values) {
    const double own = static_cast<double>(value);
    // What was cut off at 0 is 0 on every machine.
    noisy.push_back(own == 0 ? 0
                             : static_cast<float>(own + relative * own * normal(random) +
                                                  absolute * normal(random)));
  }
  return noisy;
}

bool IsQuantised(const RealOutput& output) {
  return output.type == kit::ElementType::kInt8 || output.type == kit::ElementType::kUint8;
}

// A quantised output of another machine: here and there a value on the other side of a tie.
Values WithSteps(const RealOutput& output, const Values& values, double share, Random& random) {
  const bool isSigned = output.type == kit::ElementType::kInt8;
  Values stepped = values;
  for (float& value : stepped) {
    if (Uniform(random, 0, 1) >= share) continue;
    value += Below(random, 2) == 0 ? 1.0F : -1.0F;
    value = std::clamp(value, isSigned ? -128.0F : 0.0F, isSigned ? 127.0F : 255.0F);
  }
  return stepped;
}

// A bit of a quantised value, whose two ends are -128 or 0.
float WithBitFlipped(float value, uint64_t bit, kit::ElementType type) {
  const auto flipped = static_cast<uint8_t>(static_cast<int>(value) ^ (1 << bit));
  return type == kit::ElementType::kInt8 ? static_cast<float>(static_cast<int8_t>(flipped))
                                         : static_cast<float>(flipped);
}

Values Permuted(const Values& values, const Shape& shape, const std::vector<size_t>& order) {
  std::vector<uint64_t> strides(shape.size(), 1);
  for (size_t i = shape.size() - 1; i > 0; --i) strides[i - 1] = strides[i] * shape[i];
  Values permuted;
  std::vector<uint64_t> at(shape.size(), 0);
  for (size_t element = 0; element < values.size(); ++element) {
    uint64_t place = 0;
    for (size_t i = 0; i < order.size(); ++i) place += at[i] * strides[order[i]];
    permuted.push_back(values[place]);
    for (size_t i = order.size(); i > 0; --i) {
      if (++at[i - 1] < shape[order[i - 1]]) break;
      at[i - 1] = 0;
    }
  }
  return permuted;
}

Values Reversed(const Values& values, const Shape& shape, size_t axis) {
  uint64_t inner = 1;
  for (size_t i = axis + 1; i < shape.size(); ++i) inner *= shape[i];
  const uint64_t size = shape[axis];
  Values reversed(values.size());
  for (uint64_t i = 0; i < values.size(); ++i) {
    const uint64_t at = i / inner % size;
    reversed[i] = values[i - at * inner + (size - 1 - at) * inner];
  }
  return reversed;
}

// All faults of one sample.
class Planter {
 public:
  Planter(const RealOutput& output, Random& random) : output_(output), random_(random) {
    shape_ = output.shape;
    sample_ = 1 + Below(random, output.samples.size() - 1);
    // Neither the sample itself nor the one before.
    other_ = (sample_ + 1 + Below(random, output.samples.size() - 2)) % output.samples.size();
    expected_ = output.samples[sample_];
    // Half of them on a machine that rounds in another order.
    const bool isNoisy = Below(random, 2) == 0;
    given_ = isNoisy ? Elsewhere(std::pow(10, Uniform(random, -7, -5))) : expected_;
  }

  std::vector<PlantedFault> Plant() {
    PlantHonest();
    PlantRounding();
    PlantFew();
    PlantOrders();
    PlantChannels();
    PlantRows();
    PlantValues();
    PlantTypes();
    PlantSamples();
    PlantItems();
    for (PlantedFault& fault : faults_) {
      for (const PlantedFault& other : faults_) {
        if (other.id != fault.id && other.actual == fault.actual &&
            other.expected == fault.expected) {
          fault.alsoRight.push_back(other.id);
        }
      }
    }
    return std::move(faults_);
  }

 private:
  // As another machine gives the expected values, in the output's type.
  Values Elsewhere(double relative) {
    constexpr double kSharePerNoise = 50;
    if (IsQuantised(output_))
      return WithSteps(output_, expected_, relative * kSharePerNoise, random_);
    Values noisy = WithNoise(expected_, relative, random_);
    if (output_.type == kit::ElementType::kFloat16) {
      for (float& value : noisy) value = kit::RoundedToFloat16(value);
    }
    return noisy;
  }

  void Add(const char* id, Values actual) { Add(id, std::move(actual), expected_); }

  void Add(const char* id, Values actual, Values expected) {
    Add(id, std::move(actual), std::move(expected), shape_);
  }

  void Add(const char* id, Values actual, Values expected, const Shape& shape) {
    // An effect is one that somebody would care about.
    const float least = 0.01F * Rms(expected);
    size_t changed = 0;
    for (size_t i = 0; i < actual.size(); ++i) {
      changed += !(std::abs(actual[i] - expected[i]) <= least) ? 1 : 0;
    }
    const std::string name = id;
    const bool isSmall = name.starts_with("rounded-") || name == kHonest;
    const bool isFew = name == "isolated" || name == "signed-as-unsigned";
    if (changed < (isSmall ? 0U : isFew ? 1U : 2U)) return;
    faults_.push_back({id,
                       shape,
                       std::move(actual),
                       std::move(expected),
                       output_.samples[sample_ - 1],
                       output_.samples[other_],
                       {}});
  }

  void PlantHonest() {
    Add(kHonest, Elsewhere(std::pow(10, Uniform(random_, -7, -3))));
    if (IsQuantised(output_)) return;  // what else differs there differs by a step
    Values biased = WithNoise(expected_, 1e-3, random_);
    for (float& value : biased) value *= 1.0003F;
    Add(kHonest, std::move(biased));
    // An activation of another library: a little off where the slope is steep.
    Values curved = expected_;
    const float rms = Rms(curved);
    for (float& value : curved) value += 2e-3F * std::sin(value / rms * 9) * value;
    Add(kHonest, std::move(curved));
  }

  void PlantRounding() {
    if (IsQuantised(output_)) return;  // it is rounded already
    Values half;
    Values brain;
    for (const float value : expected_) {
      half.push_back(kit::RoundedToFloat16(value));
      brain.push_back(kit::RoundedToBfloat16(value));
    }
    if (half != expected_) Add("rounded-float16", std::move(half));
    if (brain != expected_) Add("rounded-bfloat16", std::move(brain));
    const auto [least, most] = std::minmax_element(expected_.begin(), expected_.end());
    const float step = std::max(std::abs(*least), std::abs(*most)) /
                       static_cast<float>(Uniform(random_, 100, 140));
    Values small;
    for (const float value : expected_) {
      small.push_back(std::clamp(std::nearbyint(value / step), -128.0F, 127.0F) * step);
    }
    // One class of ten, and nothing of the others: two levels are no steps.
    constexpr size_t kFewestLevels = 4;
    if (std::set<float>(small.begin(), small.end()).size() >= kFewestLevels) {
      Add("rounded-int8", std::move(small));
    }
    // By the step of a device, which is that of all samples: next to nothing is left of a faint
    // one.
    const auto deviceStep = static_cast<float>(output_.Reach() / Uniform(random_, 120, 128));
    Values device;
    for (const float value : expected_) {
      device.push_back(std::clamp(std::nearbyint(value / deviceStep), -128.0F, 127.0F) *
                       deviceStep);
    }
    Add("rounded-int8", std::move(device));
  }

  void PlantFew() {
    Values flipped = given_;
    const size_t most = std::max<size_t>(flipped.size() / 200, 1);
    for (size_t i = 0; i <= Below(random_, most); ++i) {
      float& value = flipped[Below(random_, flipped.size())];
      if (IsQuantised(output_)) {
        value = WithBitFlipped(value, 3 + Below(random_, 5), output_.type);
        continue;
      }
      const auto bit = static_cast<uint32_t>(20 + Below(random_, 12));
      value = std::bit_cast<float>(std::bit_cast<uint32_t>(value) ^ (1U << bit));
    }
    Add("isolated", std::move(flipped));
    Values sorted = given_;
    std::sort(sorted.begin(), sorted.end());
    const auto rank =
        static_cast<size_t>(Uniform(random_, 0.7, 0.95) * static_cast<double>(sorted.size()));
    const float limit = (sorted[rank] + sorted[rank - 1]) / 2;
    Values cut = given_;
    for (float& value : cut) value = std::min(value, limit);
    Add("saturated", std::move(cut));
    Values tail = given_;
    const uint64_t from = tail.size() - 1 - Below(random_, tail.size() / 2);
    const bool isStale = Below(random_, 3) == 0;
    for (uint64_t i = from; i < tail.size(); ++i) {
      tail[i] = isStale ? output_.samples[sample_ - 1][i] : 0;
    }
    Add("tail-unwritten", std::move(tail));
    constexpr float kFills[]{0, 1, NAN, -1.5F};
    Add("constant", Values(given_.size(), kFills[Below(random_, 4)]));
  }

  void PlantOrders() {
    const size_t rank = shape_.size();
    const auto add = [&](const char* id, const std::vector<size_t>& order) {
      Add(id, Permuted(given_, shape_, order));
    };
    // Of one channel the layouts are the same, or rows and columns change places.
    if (rank == 4 && shape_[1] > 1) {
      add("nchw-nhwc", Below(random_, 2) == 0 ? std::vector<size_t>{0, 2, 3, 1}
                                              : std::vector<size_t>{0, 3, 1, 2});
    }
    if (rank == 4) add("rows-columns", {0, 1, 3, 2});
    const size_t channels = rank == 3 ? 0 : 1;
    if (rank > 1) Add("channels-reversed", Reversed(given_, shape_, channels));
    if (rank == 4) Add("flipped", Reversed(given_, shape_, 2 + Below(random_, 2)));
  }

  // Of the dimension behind the batch. A channel of a few elements has no look of its own.
  void PlantChannels() {
    constexpr uint64_t kFewest = 3;
    constexpr uint64_t kFewestElements = 4;
    const size_t rank = shape_.size();
    if (rank < 2) return;
    const size_t axis = rank == 3 ? 0 : 1;
    const uint64_t channels = shape_[axis];
    if (channels < kFewest || given_.size() / channels < kFewestElements) return;
    uint64_t inner = 1;
    for (size_t i = axis + 1; i < rank; ++i) inner *= shape_[i];
    const uint64_t one = Below(random_, channels - 1);
    const uint64_t other = one + 1 + Below(random_, channels - 1 - one);
    Values exchanged = given_;
    Values off = given_;
    const uint64_t kind = Below(random_, 4);
    const auto factor = static_cast<float>(Uniform(random_, 1.5, 6));
    const float offset = Rms(given_) * static_cast<float>(Uniform(random_, 0.5, 3));
    for (uint64_t i = 0; i < given_.size(); ++i) {
      const uint64_t channel = i / inner % channels;
      if (channel == one) exchanged[i] = given_[i + (other - one) * inner];
      if (channel == other) exchanged[i] = given_[i - (other - one) * inner];
      if (channel != one) continue;
      if (kind == 0) off[i] = 0;
      if (kind == 1) off[i] *= factor;
      if (kind == 2) off[i] += offset;
      if (kind == 3) off[i] = -off[i];
    }
    Add("channels-exchanged", std::move(exchanged));
    Add("channel-off", std::move(off));
  }

  void PlantRows() {
    Add("shifted", Shifted(1 + Below(random_, std::min<uint64_t>(given_.size() / 4, 40))));
    const uint64_t row = shape_.back();
    if (shape_.size() < 2 || row < 2 || given_.size() / row < 4) return;
    Add("shifted",
        Shifted(row * (1 + Below(random_, std::min<uint64_t>(given_.size() / row / 4, 12)))));
    const uint64_t stride = row + 1 + Below(random_, row);
    Values padded(given_.size(), 0);
    for (uint64_t i = 0; i < padded.size(); ++i) {
      if (i % stride < row) padded[i] = given_[i / stride * row + i % stride];
    }
    if (stride <= 2 * row) Add("stride-left-in", std::move(padded));
    const uint64_t wrong = Below(random_, 2 * row);
    if (wrong == row) return;
    Values taken(given_.size(), 0);
    for (uint64_t i = 0; i < taken.size(); ++i) {
      const uint64_t place = i / row * wrong + i % row;
      if (place < taken.size()) taken[i] = given_[place];
    }
    Add("stride-wrong", std::move(taken));
  }

  Values Shifted(uint64_t by) {
    Values shifted(given_.size(), 0);
    if (Below(random_, 2) == 0) {
      std::copy(given_.begin(), given_.end() - static_cast<std::ptrdiff_t>(by),
                shifted.begin() + static_cast<std::ptrdiff_t>(by));
    } else {
      std::copy(given_.begin() + static_cast<std::ptrdiff_t>(by), given_.end(), shifted.begin());
    }
    return shifted;
  }

  void PlantValues() {
    const auto scale = static_cast<float>(std::pow(10, Uniform(random_, 0.1, 2.5)));
    const bool isInverse = Below(random_, 2) == 0;
    const float offset = Rms(given_) * static_cast<float>(Uniform(random_, 0.2, 5));
    Values scaled = given_;
    Values moved = given_;
    Values both = given_;
    Values bent = given_;
    const float rms = Rms(given_);
    for (size_t i = 0; i < given_.size(); ++i) {
      scaled[i] *= isInverse ? 1 / scale : scale;
      moved[i] += offset;
      both[i] = both[i] * scale + offset;
      const float part = bent[i] / rms;
      bent[i] = rms * std::copysign(std::pow(std::abs(part), 0.4F), part);
    }
    Add("scaled", std::move(scaled));
    Add("offset", std::move(moved));
    Add("scaled", std::move(both));
    Add("order-kept", std::move(bent));
    const bool isNegative =
        std::any_of(given_.begin(), given_.end(), [](float x) { return x < 0; });
    // An activation comes before values are quantised.
    if (!isNegative || IsQuantised(output_)) return;
    Values rectified = expected_;
    for (float& value : rectified) value = std::max(value, 0.0F);
    Add("activation-missing", given_, std::move(rectified));
    Values sigmoid = expected_;
    for (float& value : sigmoid) value = 1 / (1 + std::exp(-value));
    Add("activation-missing", given_, std::move(sigmoid));
    if (shape_.size() > 2) return;
    Values softmax = expected_;
    double sum = 0;
    const float most = *std::max_element(softmax.begin(), softmax.end());
    for (float& value : softmax) {
      value = std::exp(value - most);
      sum += static_cast<double>(value);
    }
    for (float& value : softmax) value = static_cast<float>(static_cast<double>(value) / sum);
    Add("activation-missing", given_, std::move(softmax));
  }

  void PlantTypes() {
    Values halfBits;
    Values brainBits;
    for (const float value : given_) {
      brainBits.push_back(
          static_cast<float>(std::bit_cast<uint32_t>(kit::RoundedToBfloat16(value)) >> 16));
      halfBits.push_back(static_cast<float>(HalfBits(value)));
    }
    Add("float16-as-bits", std::move(halfBits));
    Add("bfloat16-as-bits", std::move(brainBits));
    PlantByteOrder();
    // Of an 8-bit output, as its whole numbers.
    const auto [least, most] = std::minmax_element(expected_.begin(), expected_.end());
    const float step = std::max(std::abs(*least), std::abs(*most)) / 127;
    Values whole;
    Values asUnsigned;
    Values asFloat;
    for (const float value : expected_) {
      const float quantised = std::nearbyint(value / step);
      whole.push_back(quantised);
      asUnsigned.push_back(quantised < 0 ? quantised + 256 : quantised);
      asFloat.push_back(std::bit_cast<float>(static_cast<int32_t>(quantised)));
    }
    Add("signed-as-unsigned", std::move(asUnsigned), whole);
    Add("int32-as-float", std::move(asFloat), std::move(whole));
  }

  void PlantByteOrder() {
    Values turned;
    for (const float value : given_) {
      if (output_.type == kit::ElementType::kFloat16) {
        const uint32_t bits = HalfBits(value);
        turned.push_back(kit::Float16Value(static_cast<uint16_t>((bits & 0xFFU) << 8 | bits >> 8)));
      } else {
        turned.push_back(std::bit_cast<float>(__builtin_bswap32(std::bit_cast<uint32_t>(value))));
      }
    }
    if (!IsQuantised(output_)) return Add("byte-order", std::move(turned));
    // A byte has no order: as the next wider number.
    for (size_t i = 0; i < given_.size(); ++i) {
      const auto bits = static_cast<uint16_t>(static_cast<int16_t>(given_[i]));
      turned[i] = static_cast<float>(static_cast<int16_t>(bits << 8 | bits >> 8));
    }
    Add("byte-order", std::move(turned));
  }

  // By looking for it: all patterns are tried.
  static uint32_t HalfBits(float value) {
    const float wanted = kit::RoundedToFloat16(value);
    const uint32_t sign = std::signbit(wanted) ? 0x8000U : 0;
    uint32_t low = 0;
    uint32_t high = 0x7C00;
    while (low < high) {
      const uint32_t middle = (low + high) / 2;
      if (kit::Float16Value(static_cast<uint16_t>(middle)) < std::abs(wanted)) {
        low = middle + 1;
      } else {
        high = middle;
      }
    }
    return sign | low;
  }

  void PlantSamples() {
    Add("stale", output_.samples[sample_ - 1]);
    Add("other-sample", output_.samples[other_]);
  }

  void PlantItems() {
    constexpr uint64_t kItems = 4;
    if (output_.samples.size() < kItems || shape_.front() != 1) return;
    Values expected;
    for (uint64_t i = 0; i < kItems; ++i) {
      const Values& item = output_.samples[(sample_ + i) % output_.samples.size()];
      expected.insert(expected.end(), item.begin(), item.end());
    }
    Shape shape = shape_;
    shape.front() = kItems;
    std::vector<uint64_t> from(kItems);
    std::iota(from.begin(), from.end(), 0U);
    if (Below(random_, 2) == 0) {
      std::swap(from[Below(random_, 2)], from[2 + Below(random_, 2)]);
    } else {
      std::rotate(from.begin(), from.begin() + 1 + static_cast<std::ptrdiff_t>(Below(random_, 3)),
                  from.end());
    }
    Values actual;
    const size_t size = expected.size() / kItems;
    for (const uint64_t item : from) {
      const auto first = expected.begin() + static_cast<std::ptrdiff_t>(item * size);
      actual.insert(actual.end(), first, first + static_cast<std::ptrdiff_t>(size));
    }
    faults_.push_back(
        {"items-exchanged", shape, std::move(actual), std::move(expected), {}, {}, {}});
  }

  const RealOutput& output_;
  Random& random_;
  Shape shape_;
  size_t sample_ = 0;
  size_t other_ = 0;
  Values expected_;
  Values given_;
  std::vector<PlantedFault> faults_;
};

bool IsAnyOutside(const kit::CauseQuestion& question) {
  kit::CensusTaker taker(question.tolerance, 0);
  taker.Take(question.actual, question.expected);
  return taker.Result().outside > 0;
}

}  // namespace

double RealOutput::Reach() const {
  double reach = 0;
  for (const std::vector<float>& sample : samples) {
    for (const float value : sample) reach = std::max(reach, std::abs(static_cast<double>(value)));
  }
  return reach;
}

kit::Tolerance ToleranceOf(const RealOutput& output) {
  if (IsQuantised(output)) return {.atol = 1, .rtol = 1.3e-6, .isNanExpected = false};
  const bool isHalf = output.type == kit::ElementType::kFloat16;
  return {.atol = 1e-5, .rtol = isHalf ? 1e-3 : 1.3e-6, .isNanExpected = false};
}

std::vector<RealOutput> ReadOutputs(const std::string& path) {
  std::vector<std::string> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      if (entry.path().extension() == ".npy") files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
  } else {
    files.push_back(path);
  }
  std::vector<RealOutput> outputs;
  for (const std::string& file : files) {
    const kit::StoredTensor tensor = kit::OpenNpy(file);
    RealOutput output;
    output.name = std::filesystem::path(file).stem().string();
    output.shape = *tensor.shape;
    output.type = tensor.type;
    const uint64_t samples = output.shape.front();
    output.shape.front() = 1;
    for (uint64_t sample = 0; sample < samples; ++sample) {
      kit::TensorReader reader(tensor, kit::ElementOrder::Of(tensor).Slice(sample));
      output.samples.push_back(kit::ReadAll(reader, 1 << 24));
    }
    outputs.push_back(std::move(output));
  }
  return outputs;
}

std::vector<PlantedFault> PlantFaults(const RealOutput& output, std::mt19937_64& random) {
  return Planter(output, random).Plant();
}

void Confusion::Add(const PlantedFault& fault, const std::vector<kit::Cause>& causes) {
  std::string named = causes.empty() ? kNone : causes.front().id;
  const bool isRight =
      std::find(fault.alsoRight.begin(), fault.alsoRight.end(), named) != fault.alsoRight.end();
  ++counts_[fault.id][isRight ? fault.id : named];
}

double Confusion::Right() const {
  size_t all = 0;
  size_t right = 0;
  for (const auto& [planted, named] : counts_) {
    if (planted == kHonest) continue;
    for (const auto& [id, count] : named) {
      all += count;
      right += id == planted ? count : 0;
    }
  }
  return static_cast<double>(right) / static_cast<double>(std::max<size_t>(all, 1));
}

double Confusion::HonestNamed() const {
  size_t all = 0;
  size_t named = 0;
  const auto honest = counts_.find(kHonest);
  if (honest == counts_.end()) return 0;
  for (const auto& [id, count] : honest->second) {
    all += count;
    named += id == kNone ? 0 : count;
  }
  return static_cast<double>(named) / static_cast<double>(std::max<size_t>(all, 1));
}

std::string Confusion::Table() const {
  std::string table = "| planted | cases | named right | named otherwise |\n|---|---|---|---|\n";
  for (const auto& [planted, named] : counts_) {
    size_t all = 0;
    size_t right = 0;
    std::string otherwise;
    for (const auto& [id, count] : named) {
      all += count;
      if (id == (planted == kHonest ? std::string(kNone) : planted)) {
        right = count;
      } else {
        otherwise += (otherwise.empty() ? "" : ", ") + id + " " + std::to_string(count);
      }
    }
    char share[16];
    std::snprintf(share, sizeof(share), "%.1f %%",
                  100 * static_cast<double>(right) / static_cast<double>(all));
    table +=
        "| " + planted + " | " + std::to_string(all) + " | " + share + " | " + otherwise + " |\n";
  }
  return table;
}

Confusion Confuse(const std::vector<RealOutput>& outputs, size_t rounds, uint64_t seed) {
  std::mt19937_64 random(seed);
  Confusion confusion;
  for (size_t round = 0; round < rounds; ++round) {
    for (const RealOutput& output : outputs) {
      for (const PlantedFault& fault : PlantFaults(output, random)) {
        kit::CauseQuestion question;
        question.actual = fault.actual;
        question.expected = fault.expected;
        question.shape = fault.shape;
        question.tolerance = ToleranceOf(output);
        question.before = fault.before;
        question.other = fault.other;
        question.reach = output.Reach();
        if (!fault.other.empty()) question.otherSample = 0;
        // As the verb does: of what is within the tolerance nobody asks for a cause.
        confusion.Add(
            fault, IsAnyOutside(question) ? kit::FindCauses(question) : std::vector<kit::Cause>{});
      }
    }
  }
  return confusion;
}

}  // namespace vorn::bench
