// Attempts that began, have no end in the journals, and that nobody is at any more.
#ifndef VORN_KIT_FLEET_LOST_ATTEMPTS_H_
#define VORN_KIT_FLEET_LOST_ATTEMPTS_H_

#include <cstdint>
#include <functional>
#include <string>

#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/journal.h"

namespace vorn::kit {

/// Notes the end of each of those for which `isLost` says so of their begin, with blame kUnknown:
/// it may have been the board or the chunk. What there is of them is removed, unless it is whole:
/// that is noted as found by whoever looks at what is there. Throws a Fault.
void NoteLostAttempts(const std::string& fleet, const std::string& reason,
                      const std::function<bool(const JournalRecord& begin)>& isLost,
                      Journal& journal);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_LOST_ATTEMPTS_H_
