// Numbers in a text, as people and programs write them down.
//
//     # a remark, up to the end of the line
//     0.5, 1e-3; 0x1.8p+1
//     nan  -inf  0xff
//
// Blanks, tabs, commas, semicolons and line ends separate, so that 1,5 is two numbers. A comma or
// semicolon stands behind a number; where two follow each other one is missing. Nothing depends on
// the language that is set.
#ifndef VORN_KIT_PREPARE_NUMBER_TEXT_H_
#define VORN_KIT_PREPARE_NUMBER_TEXT_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "kit/tensor/array.h"

namespace vorn::kit {

/// The numbers as int64 where all of them are whole, written so (17, not 17.0) and within its
/// range; else as float64, the nearest to what is written. [rows, columns] where several lines have
/// as many numbers each, two at least; else all in one dimension. `what` names the text in faults.
///
/// Throws a Fault of kInput with line and column (in bytes, from 1) for what is no number or beyond
/// the range of float64, and for a text without any number; one of kLimit where the array would
/// take more than `mostBytes`.
[[nodiscard]] Array ParseNumberText(std::string_view text, const std::string& what,
                                    uint64_t mostBytes);

/// Of a file of sixteen times `mostBytes` at most. Throws likewise.
[[nodiscard]] Array ReadNumberText(const std::string& path, uint64_t mostBytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_NUMBER_TEXT_H_
