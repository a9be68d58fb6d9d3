// Everything that lives in the process, and the one lock before it.
//
// The tables know nothing of threads. They are reached through two objects, which hold the lock as
// long as they live and let no other thread near meanwhile:
//
//     const Look tables(Needs::kContext);   to look something up
//     const Change tables(Needs::kContext); to change anything
//
// A thread holds one of them at a time, for bookkeeping alone: what takes long (reading a file,
// opening a model, executing it) happens without, over what was taken out of the tables before.
// That lives on although another thread ends it meanwhile, since tables share what they hold.
//
// What gives something back (destroy, free, unload) works on any thread and needs nothing, so that
// a teardown can always finish; what makes or uses something needs a context.
#ifndef VORN_RUNTIME_HOST_STATE_TABLES_H_
#define VORN_RUNTIME_HOST_STATE_TABLES_H_

#include <cstdint>
#include <memory>
#include <mutex>

#include "host/config/config.h"
#include "host/engine/engine.h"
#include "host/memory/block_store.h"
#include "host/state/datasets.h"
#include "host/state/descriptions.h"
#include "host/state/devices.h"
#include "host/state/model.h"
#include "host/state/models.h"

namespace vorn::host {

struct Tables {
  std::shared_ptr<Engine> engine;  ///< null while the runtime is down
  Config config;                   ///< with which it came up
  Timeout timeout;                 ///< of later executions
  Devices devices;
  BlockStore blocks;
  Models models;
  Descriptions descriptions;
  Datasets datasets{blocks};
  /// Counted up by every `Change`: what was found in the tables holds as long as this stays.
  uint64_t changes = 1;
};

/// What there has to be for an operation; VORN_ERROR_NOT_INITIALIZED where it is not.
enum class Needs {
  kNothing,
  kRuntime,  ///< it is up
  kContext   ///< one is current on the calling thread
};

/// Reads the tables.
class Look {
 public:
  explicit Look(Needs needs = Needs::kNothing);
  Look(const Look&) = delete;
  Look& operator=(const Look&) = delete;

  const Tables* operator->() const { return &tables_; }
  const Tables& operator*() const { return tables_; }

 private:
  std::lock_guard<std::mutex> lock_;
  const Tables& tables_;
};

/// Reads and changes them. What a step throws leaves the tables as that step found them.
class Change {
 public:
  explicit Change(Needs needs = Needs::kNothing);
  Change(const Change&) = delete;
  Change& operator=(const Change&) = delete;

  Tables* operator->() const { return &tables_; }
  Tables& operator*() const { return tables_; }

 private:
  std::lock_guard<std::mutex> lock_;
  Tables& tables_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_TABLES_H_
