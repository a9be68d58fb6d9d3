// A timeline that can be zoomed: spans of time in lanes. By scripts alone (uPlot, MIT, which stands
// in assets/uplot as it was published; its licence is in notices/): without them a sentence says
// so, and what it shows stands in a table or chart beside it. A page with one sets
// Page::hasTimeline.
#ifndef VORN_KIT_PAGE_TIMELINE_H_
#define VORN_KIT_PAGE_TIMELINE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kit/page/html.h"

namespace vorn::kit {

struct TimelineSpan {
  uint64_t beginNs = 0;  ///< on the axis
  uint64_t durationNs = 0;
  uint32_t name = 0;  ///< place in Timeline::names
  uint32_t lane = 0;  ///< place in Timeline::lanes
  uint32_t calls = 1;
  bool isBad = false;
};

struct Timeline {
  std::string id;
  std::string title;
  std::string withoutScripts;  ///< where the same is to be found
  std::vector<std::string> names;
  std::vector<std::string> lanes;
  std::vector<TimelineSpan> spans;  ///< by begin
  std::string axis;                 ///< what time counts from: "since the start of the run"
  uint64_t fromNs = 0;              ///< ends of the axis
  uint64_t toNs = 0;
};
[[nodiscard]] Html Draw(const Timeline& timeline);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_TIMELINE_H_
