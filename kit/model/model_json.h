// A description as model.json.
#ifndef VORN_KIT_MODEL_MODEL_JSON_H_
#define VORN_KIT_MODEL_MODEL_JSON_H_

#include <string>

#include "kit/model/model_description.h"

namespace vorn::kit {

/// The text of model.json, docs/schema/model.json, with a line end behind it. Bytes of a name that
/// are no UTF-8 are written as U+FFFD.
[[nodiscard]] std::string ToJson(const ModelDescription& description);

/// Reads what ToJson has written, by this version or a later one that says more. Throws a Fault of
/// kModel that names what is missing or wrong.
[[nodiscard]] ModelDescription FromJson(const std::string& text);

}  // namespace vorn::kit

#endif  // VORN_KIT_MODEL_MODEL_JSON_H_
