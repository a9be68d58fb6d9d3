// A setting of a layer. One table a layer says which there are; the layer reads them, its launcher
// makes options of them.
#ifndef VORN_SHARED_SETTINGS_LAYER_SETTING_H_
#define VORN_SHARED_SETTINGS_LAYER_SETTING_H_

namespace vorn {

/// In the environment it is VORN_LAYER_NAME in capitals, in a file of settings "layer.name".
struct LayerSetting {
  const char* name;       ///< small letters
  const char* takes;      ///< what stands for its value in help: "N"
  const char* otherwise;  ///< the value where none is given
  const char* help;       ///< a sentence or two
};

/// Names a file of settings, for all layers.
inline constexpr const char* kSettingsVariable = "VORN_LAYER_SETTINGS";

}  // namespace vorn

#endif  // VORN_SHARED_SETTINGS_LAYER_SETTING_H_
