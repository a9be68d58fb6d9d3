// Pictures on their way to whoever shows them.
#ifndef VORN_KIT_PICTURE_ENCODE_PNG_H_
#define VORN_KIT_PICTURE_ENCODE_PNG_H_

#include <string>

#include "kit/picture/picture.h"

namespace vorn::kit {

/// The bytes of a PNG file with these pixels, which are of 8 bits; the same for the same picture.
/// Throws a Fault of kOwnFault for another type, and of kLimit where there is no room.
[[nodiscard]] std::string EncodePng(const Picture& picture);

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_ENCODE_PNG_H_
