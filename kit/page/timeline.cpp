#include "kit/page/timeline.h"

#include "kit/json/json.h"

namespace vorn::kit {
namespace {

template <typename Take>
std::string Column(const Timeline& timeline, Take take) {
  std::string list = "[";
  for (const TimelineSpan& span : timeline.spans) {
    if (list.size() > 1) list += ',';
    list += std::to_string(take(span));
  }
  return list + "]";
}

std::string Names(const std::vector<std::string>& names) {
  Json list = Json::Array();
  for (const std::string& name : names) list.Append(NameExcerpt(name, 60));
  return ToText(list);
}

// Columns; each beginning by how much later it is than the one before, which takes fewer digits.
std::string DataOf(const Timeline& timeline) {
  uint64_t last = 0;
  const auto later = [&](const TimelineSpan& span) {
    const uint64_t by = span.beginNs < last ? 0 : span.beginNs - last;
    last += by;
    return by;
  };
  return "{\"names\":" + Names(timeline.names) + ",\"lanes\":" + Names(timeline.lanes) +
         ",\"axis\":" + ToText(Json(timeline.axis)) +
         ",\"fromNs\":" + std::to_string(timeline.fromNs) +
         ",\"toNs\":" + std::to_string(timeline.toNs) + ",\"later\":" + Column(timeline, later) +
         ",\"duration\":" + Column(timeline, [](const auto& span) { return span.durationNs; }) +
         ",\"name\":" + Column(timeline, [](const auto& span) { return span.name; }) +
         ",\"lane\":" + Column(timeline, [](const auto& span) { return span.lane; }) +
         ",\"calls\":" + Column(timeline, [](const auto& span) { return span.calls; }) +
         ",\"bad\":" + Column(timeline, [](const auto& span) { return span.isBad ? 1 : 0; }) + "}";
}

}  // namespace

Html Draw(const Timeline& timeline) {
  return Element("figure",
                 {{"class", "timeline"}, {"id", timeline.id}, {"data-data", timeline.id + "-data"}},
                 Element("figcaption", Text(timeline.title)) +
                     Element("p", {{"class", "fallback"}}, Text(timeline.withoutScripts))) +
         ScriptData(timeline.id + "-data", DataOf(timeline));
}

}  // namespace vorn::kit
