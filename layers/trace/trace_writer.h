// The file of a trace as it grows, in somebody else's process.
#ifndef VORN_LAYERS_TRACE_TRACE_WRITER_H_
#define VORN_LAYERS_TRACE_TRACE_WRITER_H_

#include <cstddef>
#include <cstdint>

#include "shared/trace/trace_format.h"

namespace vorn::layers {

/// Makes the file that the settings name (shared/trace/trace_settings.h) and maps it, once a
/// process: as the library is loaded, and anew in a child of `fork`. One line on standard error if
/// that fails; nothing is traced then.
void BeginTrace();

/// Notes when the layer was taken down, and a runtime that was never called by way of it.
void CloseTrace();

/// A slot for a call to the runtime in that file, and the call's number from 1; null where there is
/// no room, or no file, or the call is not to be noted.
[[nodiscard]] trace::Slot* BeginCall(const char* runtime, uint16_t operation, uint64_t& number);

[[nodiscard]] uint64_t MonotonicNs();
[[nodiscard]] uint32_t ThreadId();

}  // namespace vorn::layers

#endif  // VORN_LAYERS_TRACE_TRACE_WRITER_H_
