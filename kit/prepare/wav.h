// Files of sound whose heads tell all about them: WAV.
//
//     "RIFF" size "WAVE" | chunk | chunk | …             chunk: four letters, size, bytes, and one
//                                                        more where the size is odd
//     "fmt "  kind, channels, rate, bytes a second, bytes a moment, bits; of the extensible kind a
//             longer one, which names the kind itself
//     "data"  samples, little-endian; of 8 bits unsigned, else signed, or floats
//     "RF64"  instead of "RIFF": sizes of 64 bits stand in a chunk "ds64", 0xffffffff in their
//     place
//
// A program that writes into a pipe does not know the sizes: it leaves 0 or 0xffffffff, and the
// samples go on to the end of the file.
#ifndef VORN_KIT_PREPARE_WAV_H_
#define VORN_KIT_PREPARE_WAV_H_

#include <string>
#include <string_view>

#include "kit/prepare/signal.h"

namespace vorn::kit {

/// Whether a file begins as one of these does, by its first 12 bytes.
[[nodiscard]] bool IsWav(std::string_view head);

/// PCM of 8, 16, 24 and 32 bits, floats of 32 and 64. Throws a Fault of kInput that names the file:
/// no such file, another kind, cut off.
[[nodiscard]] SignalSource OpenWav(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_WAV_H_
