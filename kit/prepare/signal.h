// Signals, such as sound, and the frames that a recurrent model takes of them.
//
//     samples   | 0 1 2 3 4 5 6 7 8 9 a |          one channel, as float32
//     frames      0 1 2 3                          window 4
//                       3 4 5 6                    hop 3
//                             6 7 8 9
//                                   9 a 0 0        with "pad": "zeros" only
//
// In files the channels of a moment lie side by side.
#ifndef VORN_KIT_PREPARE_SIGNAL_H_
#define VORN_KIT_PREPARE_SIGNAL_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/json/json.h"
#include "kit/tensor/array.h"

namespace vorn::kit {

/// How one sample is stored.
struct SampleFormat {
  enum class Kind { kSigned, kUnsigned, kFloat };
  Kind kind = Kind::kSigned;
  uint32_t bytes = 2;  ///< whole numbers 1 to 8, floats 4 and 8
  bool isBigEndian = false;
};

/// Samples in a file.
struct SignalSource {
  std::string path;
  uint64_t offsetBytes = 0;
  uint64_t samples = 0;  ///< of each channel
  uint64_t channels = 1;
  uint64_t rate = 0;  ///< samples a second; 0 where nothing tells
  SampleFormat format;
};

/// What a person asks for.
struct SignalRecipe {
  enum class Channel { kOnly, kOne, kMean };
  enum class Axis { kNone, kFirst, kLast };
  uint64_t window = 0;                 ///< samples of a frame
  uint64_t hop = 0;                    ///< samples from one frame's begin to the next one's
  bool isFilledUp = false;             ///< the last frame with zeros; else it is left out
  Channel channel = Channel::kOnly;    ///< kOnly: there may be no other
  uint64_t channelIndex = 0;           ///< of kOne
  Axis channelAxis = Axis::kNone;      ///< of an array of two dimensions
  bool isScaled = true;                ///< whole numbers to -1 up to below 1, by their range
  std::optional<uint64_t> rate;        ///< that the samples have to have; nothing is resampled
  std::optional<uint64_t> mostFrames;  ///< the first ones; the rest is left out
};

/// Of {"window": 400, "hop": 160, "pad": "none" | "zeros", "channel": 0 | "mean", "channels":
/// "first" | "last", "scale": true, "rate": 16000, "most": 2000}; window and hop have to be there.
/// Throws a JsonError.
[[nodiscard]] SignalRecipe ParseSignalRecipe(const Json& object);

/// The whole file as samples, as {"type": "int16", "order": "little" | "big", "rate": 16000,
/// "channels": 1} tells; only the type has to be there: uint8, int8, int16, int24, int32, float32,
/// float64. Throws a JsonError for what is told, a Fault of kInput that names the file where that
/// is no whole number of samples.
[[nodiscard]] SignalSource OpenRawSignal(const std::string& path, const Json& format);

/// One channel.
struct Signal {
  std::vector<float> samples;
  uint64_t unread = 0;  ///< samples behind those that the frames need
};

/// Reads what the frames need. Throws a Fault of kInput that names the file: another rate, no such
/// channel, several where none was chosen; one of kLimit beyond `mostBytes` of floats.
[[nodiscard]] Signal ReadSignal(const SignalSource& source, const SignalRecipe& recipe,
                                uint64_t mostBytes);

/// Of an array of one dimension, or of two: channels and samples as the recipe says. `what` names
/// it in faults, which are as above.
[[nodiscard]] Signal SignalOf(const Array& array, const SignalRecipe& recipe,
                              const std::string& what, uint64_t mostBytes);

struct Frames {
  std::vector<float> values;  ///< [count, window]
  uint64_t count = 0;
  uint64_t window = 0;
  uint64_t filledUp = 0;  ///< zeros at the end of the last frame
  uint64_t leftOut = 0;   ///< samples that are in no frame, behind the last one
  uint64_t rate = 0;      ///< samples a second, where the file tells; 0: it does not
};

/// Throws a Fault of kInput where not one frame comes out, of kLimit beyond `mostBytes`.
[[nodiscard]] Frames CutIntoFrames(const Signal& signal, const SignalRecipe& recipe,
                                   const std::string& what, uint64_t mostBytes);

/// How many frames each inference takes of `frames` where a model takes `most` at a time: as many
/// as it can, the last one the rest. `most` is 1 at least.
[[nodiscard]] std::vector<uint64_t> SplitIntoSequences(uint64_t frames, uint64_t most);

/// The continuation flags of one inference that holds sequences of these lengths, one behind the
/// other: 0 for the first frame of each, 1 for the others. A state never goes on from one inference
/// to the next, so the first flag is 0 in each, also where a long signal was split: what the model
/// remembers begins anew there.
[[nodiscard]] std::vector<uint8_t> ContinuationFlags(std::span<const uint64_t> lengths);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_SIGNAL_H_
