// What a file was, as every JSON file of the kit tells it: {"path", "sizeBytes", "xxh3_128"}.
#ifndef VORN_KIT_JSON_IDENTITY_JSON_H_
#define VORN_KIT_JSON_IDENTITY_JSON_H_

#include "kit/common/file_identity.h"
#include "kit/json/json.h"

namespace vorn::kit {

/// What is not known is left out.
[[nodiscard]] Json FromIdentity(const FileIdentity& file);

/// Throws a JsonError.
[[nodiscard]] FileIdentity ToIdentity(const Json& object);

}  // namespace vorn::kit

#endif  // VORN_KIT_JSON_IDENTITY_JSON_H_
