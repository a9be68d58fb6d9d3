// The tables of the process and their lock.
#include "host/state/tables.h"

namespace vorn::host {
namespace {

struct Process {
  std::mutex mutex;
  Tables tables;
};

/// Never destroyed: the execution library's own statics, younger than this object, would be gone by
/// then.
Process& OfProcess() {
  static Process& process = *new Process;
  return process;
}

void Require(Needs needs, const Tables& tables) {
  if (needs == Needs::kRuntime) tables.devices.RequireUp();
  if (needs == Needs::kContext) tables.devices.RequireContext();
}

}  // namespace

Look::Look(Needs needs) : lock_(OfProcess().mutex), tables_(OfProcess().tables) {
  Require(needs, tables_);
}

Change::Change(Needs needs) : lock_(OfProcess().mutex), tables_(OfProcess().tables) {
  Require(needs, tables_);
  ++tables_.changes;
}

}  // namespace vorn::host
