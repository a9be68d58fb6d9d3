// What one execution records about the blocks that it was given, and what it writes into them.
#ifndef VORN_TESTS_SCRIPTED_EXECUTION_H_
#define VORN_TESTS_SCRIPTED_EXECUTION_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "scripted/script.h"

namespace scripted {

/// The bytes behind one data buffer, to the end of the block that they lie in.
struct Area {
  uint64_t bufferSize = 0;  // as the data buffer was created
  unsigned char* bytes = nullptr;
  uint64_t size = 0;
};

/// The lines that the script asks for about the areas of an execution, such as
/// `saw input 0: buffer=16 block=32 hex=00112233`, and the files of the inputs. `execution` counts
/// from 1.
[[nodiscard]] std::vector<std::string> Observe(const Script& script, uint64_t execution,
                                               const std::vector<Area>& inputs,
                                               const std::vector<Area>& outputs);

/// Writes the image to the file that the script names, if it names one.
void DumpImage(const Script& script, const void* image, uint64_t size);

/// Writes what the script says. Returns a complaint for each piece that did not fit.
[[nodiscard]] std::vector<std::string> WriteOutputs(const Script& script, uint64_t execution,
                                                    const std::vector<Area>& inputs,
                                                    const std::vector<Area>& outputs);

/// 64-bit FNV-1a.
[[nodiscard]] uint64_t Fnv1a(const unsigned char* bytes, uint64_t size);

}  // namespace scripted

#endif  // VORN_TESTS_SCRIPTED_EXECUTION_H_
