// What the four thresholds mean, written out plainly.
#ifndef VORN_TESTS_EXAMPLES_DIGIT_FINDER_PLAIN_SUPPRESSION_H_
#define VORN_TESTS_EXAMPLES_DIGIT_FINDER_PLAIN_SUPPRESSION_H_

#include <string>
#include <vector>

#include "examples/digit-finder/findings.h"

namespace finder {

/// Those of `candidates` that the thresholds of their class leave: class by class from the surest
/// on, what scores more, has ink enough in `scene` [96, 96] and overlaps nothing kept before by
/// more, as long as there is room.
std::vector<Finding> Suppress(std::vector<Finding> candidates, const std::string& scene,
                              const ThresholdsByClass& thresholds);

/// The mean ink of a box, 0 to 1.
float InkIn(const Box& box, const std::string& scene);

}  // namespace finder

#endif  // VORN_TESTS_EXAMPLES_DIGIT_FINDER_PLAIN_SUPPRESSION_H_
