// What resize.cpp and the two families of rules share; nobody else includes it.
#ifndef VORN_KIT_PICTURE_RESIZE_RULES_H_
#define VORN_KIT_PICTURE_RESIZE_RULES_H_

#include <cstdint>

#include "kit/picture/resize.h"

namespace vorn::kit {

/// cv2.resize with the rule's interpolation. All sizes are 1 at least.
[[nodiscard]] Picture ResizeAsOpencv(const Picture& picture, uint32_t width, uint32_t height,
                                     ResizeRule rule);

/// Image.resize with the rule's filter. The box lies in the picture and holds something of it.
[[nodiscard]] Picture ResizeAsPillow(const Picture& picture, uint32_t width, uint32_t height,
                                     ResizeRule rule, const ResizeBox& box);

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_RESIZE_RULES_H_
