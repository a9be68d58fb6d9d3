// Where an entry splits into name and path.
#include "common/input_entry.h"

namespace vorn::run {

bool HasInputNamePrefix(std::string_view entry) {
  const size_t colon = entry.find(':');
  return colon != std::string_view::npos && colon != 0 && colon + 1 != entry.size();
}

std::string_view InputNamePrefix(std::string_view entry) {
  return entry.substr(0, entry.find(':'));
}

}  // namespace vorn::run
