// Names of outputs that are too long for a file.
#ifndef VORN_RUNTIME_HOST_GRAPH_SHORT_NAME_H_
#define VORN_RUNTIME_HOST_GRAPH_SHORT_NAME_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace vorn::host {

/// Bytes. The name of a dump, which has 255 for most file systems, holds the output's name, a
/// number, a time stamp and an ending.
inline constexpr size_t kLongestOutputName = 200;

/// What stands for a name in the names of files: at most kLongestOutputName bytes. A name that is
/// no longer stands for itself. Else its front and its end around 16 digits, which are those of its
/// hash (FNV-1a of 64 bits), so that the same name is the same in every model and run.
[[nodiscard]] std::string ShortName(std::string_view name);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_SHORT_NAME_H_
