// What resize.cpp and the two families of rules share; nobody else includes it.
#ifndef VORN_KIT_PICTURE_RESIZE_RULES_H_
#define VORN_KIT_PICTURE_RESIZE_RULES_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "kit/picture/resize.h"

namespace vorn::kit {

/// What the loops over bytes are written in, the later the better. The results are the same.
/// kAvx512 is all of F, BW, VL, VBMI and VNNI.
enum class Instructions { kPlain, kSse2, kAvx2, kAvx512 };

/// Those that this processor has, in that order.
[[nodiscard]] std::vector<Instructions> InstructionsHere();
[[nodiscard]] Instructions BestInstructions();

/// cv2.resize with the rule's interpolation. All sizes are 1 at least.
[[nodiscard]] Picture ResizeAsOpencv(const Picture& picture, uint32_t width, uint32_t height,
                                     ResizeRule rule,
                                     Instructions instructions = BestInstructions());

/// Image.resize with the rule's filter. The box lies in the picture and holds something of it.
[[nodiscard]] Picture ResizeAsPillow(const Picture& picture, uint32_t width, uint32_t height,
                                     ResizeRule rule, const ResizeBox& box,
                                     Instructions instructions = BestInstructions());

/// Null where the rule needs all of the picture at hand. Takes what MakeRowResizer takes, and any
/// number of channels.
[[nodiscard]] std::unique_ptr<RowResizer> MakeOpencvRows(
    const RowResize& resize, TakeRow take, Instructions instructions = BestInstructions());
[[nodiscard]] std::unique_ptr<RowResizer> MakePillowRows(
    const RowResize& resize, TakeRow take, Instructions instructions = BestInstructions());

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_RESIZE_RULES_H_
