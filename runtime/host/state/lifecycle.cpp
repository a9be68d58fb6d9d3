// Up, down, and what was left.
#include "host/state/lifecycle.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/state/tables.h"

namespace vorn::host {
namespace {

constexpr size_t kMostNames = 8;  // in a line of the log

template <typename Thing>
std::string NameOf(const Thing& thing) {
  return Join(thing);
}

std::string NameOf(const BlockStore::Block& block) {
  return Join(block.address, " of ", block.size, " bytes");
}

/// "2 block(s) were not freed: ..."
template <typename Thing>
void ReportLeft(const std::vector<Thing>& left, const char* what) {
  if (left.empty()) return;
  std::string names;
  for (size_t i = 0; i < std::min(left.size(), kMostNames); ++i) {
    names += (i == 0 ? "" : ", ") + NameOf(left[i]);
  }
  if (left.size() > kMostNames) names += ", ...";
  Log(LogLevel::kError, "vorn_finalize", Join(left.size(), " ", what, ": ", names));
}

/// A line of the log for each kind of thing that was handed out and not given back.
void ReportLeaks(const Tables& tables) noexcept try {
  if (!IsLogged(LogLevel::kError)) return;
  ReportLeft(tables.models.Ids(), "model(s) were not unloaded");
  ReportLeft(tables.blocks.Blocks(), "block(s) were not freed");
  ReportLeft(tables.descriptions.Handles(), "description(s) were not destroyed");
  ReportLeft(tables.datasets.Handles(), "dataset(s) were not destroyed");
  ReportLeft(tables.datasets.BufferHandles(), "data buffer(s) were not destroyed");
  ReportLeft(tables.devices.Streams(), "stream(s) were not destroyed");
  ReportLeft(tables.devices.Contexts(), "context(s) were not destroyed");
  ReportLeft(tables.devices.SetDevices(), "device(s) were not reset");
} catch (...) {
  // Without the memory for a line there is no line; the runtime goes down all the same.
}

}  // namespace

void StartRuntime(const char* configPath) {
  if (configPath == nullptr) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the path is null; give that of a JSON file");
  }
  const Change tables;
  if (tables->engine != nullptr) {
    throw Failure(VORN_ERROR_UNSUPPORTED, "the runtime is up already; finalize it first");
  }
  Config config = ReadConfigFile(configPath);
  std::shared_ptr<Engine> engine = CreateEngine();
  tables->devices.BringUp(config);
  tables->engine = std::move(engine);
  tables->config = std::move(config);
  tables->timeout = {};
}

void StopRuntime() {
  const Change tables(Needs::kRuntime);
  ReportLeaks(*tables);
  tables->models.Clear();
  tables->devices.TakeDown();
  tables->blocks.ReleaseKept();
  tables->engine.reset();
}

}  // namespace vorn::host
