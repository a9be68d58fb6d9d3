// Compiled without products that are added in one step, so that means of channels are the same on
// every machine.
#include "kit/prepare/signal.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json_members.h"
#include "kit/tensor/input_file.h"

namespace vorn::kit {
namespace {

constexpr size_t kPieceBytes = 1 << 20;
constexpr uint64_t kMostCount = uint64_t{1} << 40;
constexpr uint64_t kMostSignalChannels = 65535;

[[noreturn]] void RefuseSignal(const std::string& what, const std::string& reason) {
  throw Fault(ExitStatus::kInput, what + " " + reason);
}

uint64_t CountOf(const Json& value, const char* key) {
  const uint64_t count = value.AsUnsigned();
  if (count > 0 && count <= kMostCount) return count;
  throw JsonError(std::string(key) + " is " + ShownValue(value) + ", and has to be 1 at least" +
                  (count == 0 ? "" : " and 2^40 at most"));
}

bool IsSecond(const Json& value, const char* key, const char* first, const char* second) {
  if (value.IsText() && value.AsText() == first) return false;
  if (value.IsText() && value.AsText() == second) return true;
  throw JsonError(std::string(key) + " is " + ShownValue(value) + ", and can be \"" + first +
                  "\" or \"" + second + "\"");
}

// ---- Samples ------------------------------------------------------------------------------------

struct RawTypeRow {
  std::string_view name;
  SampleFormat::Kind kind;
  uint32_t bytes;
};

constexpr std::array kRawTypes{
    RawTypeRow{"uint8", SampleFormat::Kind::kUnsigned, 1},
    RawTypeRow{"int8", SampleFormat::Kind::kSigned, 1},
    RawTypeRow{"int16", SampleFormat::Kind::kSigned, 2},
    RawTypeRow{"int24", SampleFormat::Kind::kSigned, 3},
    RawTypeRow{"int32", SampleFormat::Kind::kSigned, 4},
    RawTypeRow{"float32", SampleFormat::Kind::kFloat, 4},
    RawTypeRow{"float64", SampleFormat::Kind::kFloat, 8},
};

const RawTypeRow& RawTypeNamed(const std::string& name) {
  std::vector<std::string> names;
  for (const RawTypeRow& row : kRawTypes) {
    if (row.name == name) return row;
    names.emplace_back(row.name);
  }
  throw JsonError("there is no type of samples '" + Printable(name) + "'" +
                  DidYouMean(name, names) +
                  "; there are uint8, int8, int16, int24, int32, float32 and float64");
}

/// Makes numbers of stored samples.
class SampleReader {
 public:
  SampleReader(const SampleFormat& format, bool isScaled) : format_(format) {
    const int bits = static_cast<int>(format.bytes) * 8;
    sign_ = uint64_t{1} << (bits - 1);
    if (format.kind == SampleFormat::Kind::kFloat) return;
    // A power of two, by which a number is divided without being rounded.
    const double half = std::ldexp(1.0, bits - 1);
    if (isScaled) scale_ = 1 / half;
    if (isScaled && format.kind == SampleFormat::Kind::kUnsigned) middle_ = half;
  }

  [[nodiscard]] double At(const std::byte* sample) const {
    uint64_t word = 0;
    for (uint32_t i = 0; i < format_.bytes; ++i) {
      const uint32_t at = format_.isBigEndian ? i : format_.bytes - 1 - i;
      word = word << 8 | std::to_integer<uint64_t>(sample[at]);
    }
    return (ValueOf(word) - middle_) * scale_;
  }

 private:
  [[nodiscard]] double ValueOf(uint64_t word) const {
    if (format_.kind == SampleFormat::Kind::kUnsigned) return static_cast<double>(word);
    if (format_.kind == SampleFormat::Kind::kFloat) {
      if (format_.bytes == sizeof(double)) return std::bit_cast<double>(word);
      return static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(word)));
    }
    return static_cast<double>(static_cast<int64_t>((word ^ sign_) - sign_));
  }

  SampleFormat format_;
  uint64_t sign_ = 0;  ///< the highest bit
  double middle_ = 0;
  double scale_ = 1;
};

// A float64 beyond the range of float32 becomes infinite there.
float RoundedToFloat(double value) {
  constexpr auto kMost = static_cast<double>(std::numeric_limits<float>::max());
  if (std::abs(value) > kMost) {
    return std::copysign(std::numeric_limits<float>::infinity(), value < 0 ? -1.0F : 1.0F);
  }
  return static_cast<float>(value);
}

void CheckChannel(const SignalRecipe& recipe, uint64_t channels, const std::string& what) {
  if (recipe.channel == SignalRecipe::Channel::kOnly && channels != 1) {
    RefuseSignal(what, "has " + Counted(channels, "channel") +
                           "; say which is meant (\"channel\": 0), or \"mean\"");
  }
  if (recipe.channel == SignalRecipe::Channel::kOne && recipe.channelIndex >= channels) {
    RefuseSignal(what, "has " + Counted(channels, "channel") + ", and none with the number " +
                           std::to_string(recipe.channelIndex) + "; the first one is 0");
  }
}

// How many samples of `samples` go into frames. Throws where they would not fit.
uint64_t SamplesNeeded(const SignalRecipe& recipe, uint64_t samples, const std::string& what,
                       uint64_t mostBytes) {
  uint64_t needed = samples;
  if (recipe.mostFrames) {
    uint64_t hops = 0;
    const bool isBeyond = __builtin_mul_overflow(*recipe.mostFrames - 1, recipe.hop, &hops);
    if (!isBeyond && hops < samples) needed = std::min(samples, hops + recipe.window);
  }
  if (needed <= mostBytes / sizeof(float)) return needed;
  throw Fault(ExitStatus::kLimit, what + " has " + Counted(needed, "sample") + ", more than the " +
                                      SizeText(mostBytes) +
                                      " of floats that are read at once; cut it into pieces");
}

/// Samples in memory.
struct SampleGrid {
  const std::byte* first = nullptr;
  uint64_t sampleStep = 0;   ///< bytes from one to the next of the same channel
  uint64_t channelStep = 0;  ///< bytes from one channel to the next
  uint64_t channels = 1;
};

void TakeChannel(const SampleGrid& grid, const SampleReader& reader, const SignalRecipe& recipe,
                 std::span<float> room) {
  const bool isMean = recipe.channel == SignalRecipe::Channel::kMean;
  const uint64_t begin = isMean ? 0 : recipe.channelIndex;
  const uint64_t end = isMean ? grid.channels : begin + 1;
  for (size_t i = 0; i < room.size(); ++i) {
    double sum = 0;
    for (uint64_t channel = begin; channel < end; ++channel) {
      sum += reader.At(grid.first + i * grid.sampleStep + channel * grid.channelStep);
    }
    room[i] = RoundedToFloat(sum / static_cast<double>(end - begin));
  }
}

SampleFormat SampleFormatOf(ElementType type, const std::string& what) {
  SampleFormat format;
  format.bytes = static_cast<uint32_t>(ElementBytes(type));
  format.isBigEndian = std::endian::native == std::endian::big;
  switch (type) {
    case ElementType::kFloat32:
    case ElementType::kFloat64:
      format.kind = SampleFormat::Kind::kFloat;
      return format;
    case ElementType::kUint8:
    case ElementType::kUint16:
    case ElementType::kUint32:
    case ElementType::kUint64:
      format.kind = SampleFormat::Kind::kUnsigned;
      return format;
    case ElementType::kInt8:
    case ElementType::kInt16:
    case ElementType::kInt32:
    case ElementType::kInt64:
      return format;
    case ElementType::kFloat16:
    case ElementType::kBfloat16:
    case ElementType::kBool:
      break;
  }
  RefuseSignal(what, "has elements of " + std::string(ElementName(type)) +
                         ", which no signal has; save it as float32");
}

}  // namespace

SignalRecipe ParseSignalRecipe(const Json& object) {
  HoldToKeys(object, "a signal has",
             {"window", "hop", "pad", "channel", "channels", "scale", "rate", "most"});
  SignalRecipe recipe;
  recipe.window = CountOf(object.At("window"), "window");
  recipe.hop = CountOf(object.At("hop"), "hop");
  if (const Json* pad = object.Find("pad")) {
    recipe.isFilledUp = IsSecond(*pad, "pad", "none", "zeros");
  }
  if (const Json* channel = object.Find("channel")) {
    recipe.channel = SignalRecipe::Channel::kOne;
    if (!channel->IsText()) {
      recipe.channelIndex = channel->AsUnsigned();
    } else if (channel->AsText() == "mean") {
      recipe.channel = SignalRecipe::Channel::kMean;
    } else {
      throw JsonError("channel is " + ShownValue(*channel) + ", and can be a number or \"mean\"");
    }
  }
  if (const Json* axis = object.Find("channels")) {
    recipe.channelAxis = IsSecond(*axis, "channels", "first", "last") ? SignalRecipe::Axis::kLast
                                                                      : SignalRecipe::Axis::kFirst;
  }
  if (const Json* scale = object.Find("scale")) recipe.isScaled = scale->AsBool();
  if (const Json* rate = object.Find("rate")) recipe.rate = CountOf(*rate, "rate");
  if (const Json* most = object.Find("most")) recipe.mostFrames = CountOf(*most, "most");
  return recipe;
}

SignalSource OpenRawSignal(const std::string& path, const Json& format) {
  HoldToKeys(format, "a raw signal has", {"type", "order", "rate", "channels"});
  const RawTypeRow& type = RawTypeNamed(format.At("type").AsText());
  SignalSource source;
  source.path = path;
  source.format.kind = type.kind;
  source.format.bytes = type.bytes;
  if (const Json* order = format.Find("order")) {
    source.format.isBigEndian = IsSecond(*order, "order", "little", "big");
  }
  if (const Json* rate = format.Find("rate")) source.rate = CountOf(*rate, "rate");
  if (const Json* channels = format.Find("channels")) {
    source.channels = CountOf(*channels, "channels");
    if (source.channels > kMostSignalChannels) {
      throw JsonError("channels is " + ShownValue(*channels) + ", and 65535 are taken at most");
    }
  }
  const InputFile file(path, "the signal");
  const uint64_t momentBytes = source.channels * type.bytes;
  if (file.Bytes() % momentBytes != 0) {
    file.Refuse("has " + Counted(file.Bytes(), "byte") + ", no whole number of samples of " +
                Counted(momentBytes, "byte") + " (" + Counted(source.channels, "channel") + " of " +
                std::string(type.name) + ")");
  }
  source.samples = file.Bytes() / momentBytes;
  return source;
}

Signal ReadSignal(const SignalSource& source, const SignalRecipe& recipe, uint64_t mostBytes) {
  const std::string what = "the signal " + Quoted(source.path);
  if (recipe.rate && source.rate != 0 && *recipe.rate != source.rate) {
    RefuseSignal(what, "has " + std::to_string(source.rate) + " samples a second, and " +
                           std::to_string(*recipe.rate) +
                           " are asked for; resample it, nothing here does");
  }
  CheckChannel(recipe, source.channels, what);
  Signal signal;
  signal.samples.resize(SamplesNeeded(recipe, source.samples, what, mostBytes));
  signal.unread = source.samples - signal.samples.size();
  const InputFile file(source.path, "the signal");
  const SampleReader reader(source.format, recipe.isScaled);
  const uint64_t momentBytes = source.channels * source.format.bytes;
  const uint64_t pieceSamples = std::max<uint64_t>(kPieceBytes / momentBytes, 1);
  std::vector<std::byte> piece;
  for (uint64_t done = 0; done < signal.samples.size();) {
    const uint64_t count = std::min<uint64_t>(pieceSamples, signal.samples.size() - done);
    piece.resize(count * momentBytes);
    file.ReadAt(source.offsetBytes + done * momentBytes, piece);
    TakeChannel({piece.data(), momentBytes, source.format.bytes, source.channels}, reader, recipe,
                std::span(signal.samples).subspan(done, count));
    done += count;
  }
  return signal;
}

Signal SignalOf(const Array& array, const SignalRecipe& recipe, const std::string& what,
                uint64_t mostBytes) {
  const SampleFormat format = SampleFormatOf(array.type, what);
  SampleGrid grid{array.bytes.data(), format.bytes, 0, 1};
  uint64_t samples = array.Elements();
  if (array.shape.size() == 2) {
    if (recipe.channelAxis == SignalRecipe::Axis::kNone) {
      RefuseSignal(what, "is " + TextOf(array.shape) +
                             "; say which of the two counts channels (\"channels\": \"first\" or "
                             "\"last\")");
    }
    const bool isFirst = recipe.channelAxis == SignalRecipe::Axis::kFirst;
    grid.channels = array.shape[isFirst ? 0 : 1];
    samples = array.shape[isFirst ? 1 : 0];
    grid.sampleStep = format.bytes * (isFirst ? 1 : grid.channels);
    grid.channelStep = format.bytes * (isFirst ? samples : 1);
  } else if (array.shape.size() != 1) {
    RefuseSignal(what, "is " + TextOf(array.shape) +
                           ", and a signal has one dimension, or two with channels");
  }
  CheckChannel(recipe, grid.channels, what);
  if (grid.channels == 0) samples = 0;
  Signal signal;
  signal.samples.resize(SamplesNeeded(recipe, samples, what, mostBytes));
  signal.unread = samples - signal.samples.size();
  TakeChannel(grid, SampleReader(format, recipe.isScaled), recipe, signal.samples);
  return signal;
}

Frames CutIntoFrames(const Signal& signal, const SignalRecipe& recipe, const std::string& what,
                     uint64_t mostBytes) {
  const uint64_t samples = signal.samples.size();
  const uint64_t window = recipe.window;
  const uint64_t behindFirst = samples - std::min(samples, window);
  Frames frames;
  frames.window = window;
  if (samples >= window) {
    frames.count = behindFirst / recipe.hop + 1;
    // One more for what is in no frame yet.
    if (recipe.isFilledUp && behindFirst % recipe.hop != 0 && frames.count * recipe.hop < samples) {
      ++frames.count;
    }
  } else if (recipe.isFilledUp && samples > 0) {
    frames.count = 1;
  }
  if (frames.count == 0) {
    RefuseSignal(what, "has " + Counted(samples, "sample") + ", and a frame takes " +
                           std::to_string(window) +
                           (samples > 0 ? "; \"pad\": \"zeros\" fills it up" : ""));
  }
  frames.count = std::min(frames.count, recipe.mostFrames.value_or(frames.count));
  if (frames.count > mostBytes / sizeof(float) / window) {
    throw Fault(ExitStatus::kLimit, what + " makes " + Counted(frames.count, "frame") + " of " +
                                        Counted(window, "sample") + ", more than the " +
                                        SizeText(mostBytes) + " that are made at once");
  }
  frames.values.assign(frames.count * window, 0.0F);
  for (uint64_t i = 0; i < frames.count; ++i) {
    const uint64_t begin = i * recipe.hop;
    const uint64_t taken = std::min(window, samples - begin);
    std::copy_n(signal.samples.begin() + static_cast<std::ptrdiff_t>(begin), taken,
                frames.values.begin() + static_cast<std::ptrdiff_t>(i * window));
    frames.filledUp = window - taken;
  }
  const uint64_t end = (frames.count - 1) * recipe.hop + window;
  frames.leftOut = samples - std::min(samples, end) + signal.unread;
  return frames;
}

std::vector<uint64_t> SplitIntoSequences(uint64_t frames, uint64_t most) {
  std::vector<uint64_t> lengths(frames / most, most);
  if (frames % most != 0) lengths.push_back(frames % most);
  return lengths;
}

std::vector<uint8_t> ContinuationFlags(std::span<const uint64_t> lengths) {
  std::vector<uint8_t> flags;
  for (const uint64_t length : lengths) {
    if (length == 0) continue;
    flags.push_back(0);
    flags.insert(flags.end(), length - 1, 1);
  }
  return flags;
}

}  // namespace vorn::kit
