// The settings of a layer, out of the environment and a file.
#ifndef VORN_LAYERS_COMMON_SETTINGS_H_
#define VORN_LAYERS_COMMON_SETTINGS_H_

#include <cstddef>

#include "shared/settings/layer_setting.h"

namespace vorn::layers {

/// A layer's table. All of it lives as long as the process.
struct SettingsTable {
  const char* layer;  ///< "trace": VORN_TRACE_…, "trace.…"
  const LayerSetting* settings;
  size_t count;
};

/// The value of each setting: from the environment, else from the file that kSettingsVariable
/// names, else what the table has. A variable without a value counts as not given. The file has
/// lines `trace.calls = 1000`; those of other layers are left alone, `#` begins a remark.
///
/// False, and a line on standard error, for a setting that the layer does not have and a file that
/// cannot be read. Values are good until the environment changes.
[[nodiscard]] bool ReadSettings(const SettingsTable& table, const char** values);

/// The values as lines `calls=1000`, cut where they are longer than `size` - 1 bytes, a zero behind
/// them.
void DescribeSettings(const SettingsTable& table, const char* const* values, char* text,
                      size_t size);

/// A whole file of at most `size` - 1 bytes, a zero behind it. False if it cannot be read, is
/// longer, or has a zero in it.
[[nodiscard]] bool ReadTextFile(const char* path, char* text, size_t size);

}  // namespace vorn::layers

#endif  // VORN_LAYERS_COMMON_SETTINGS_H_
