// Writing the outputs of one inference to files.
#ifndef VORN_SRC_OUTPUT_DUMP_H_
#define VORN_SRC_OUTPUT_DUMP_H_

#include <cstdint>
#include <string>

#include "output/output_values.h"

namespace vorn::run {

/// Makes the folder of the inference under `outputPath` (whose parent folders have to be there) and
/// writes every output into it twice: one value per line as text (".float") and dense 32-bit floats
/// in the machine's byte order (".bin"). A problem with one file is printed and the next file
/// follows. `inference` counts successful executions from 0. `buffer` is room for the values of one
/// output at a time.
void DumpOutputs(const OutputSource& source, const std::string& outputPath, uint32_t inference,
                 ValueBuffer& buffer);

}  // namespace vorn::run

#endif  // VORN_SRC_OUTPUT_DUMP_H_
