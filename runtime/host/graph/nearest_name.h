// The name that somebody may have meant.
#ifndef VORN_RUNTIME_HOST_GRAPH_NEAREST_NAME_H_
#define VORN_RUNTIME_HOST_GRAPH_NEAREST_NAME_H_

#include <string_view>
#include <vector>

namespace vorn::host {

/// The name that the fewest bytes put in, left out or exchanged lead to, the first of several;
/// empty where there are no names. What is longer than a few hundred bytes is compared by its
/// beginning.
std::string_view NearestName(std::string_view wanted, const std::vector<std::string_view>& names);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_NEAREST_NAME_H_
