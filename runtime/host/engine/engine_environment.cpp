// The environment and what it needs to its end.
#include "host/engine/engine_environment.h"

#include <cstddef>
#include <memory>
#include <mutex>

#include "host/common/log.h"
#include "host/engine/engine_allocator.h"

namespace vorn::host {
namespace {

/// At the level of information even for its errors: those come back as statuses, too.
void ORT_API_CALL ForwardLog(void*, OrtLoggingLevel, const char* category, const char*, const char*,
                             const char* message) {
  Log(LogLevel::kInfo, category == nullptr ? "engine" : category, message);
}

/// The library as it was brought up, with the allocator that it uses to its end.
struct Library {
  Library() : env(EngineLogSeverity(), "vorn", ForwardLog, nullptr) {
    env.DisableTelemetryEvents();
    // Used by sessions that ask for it.
    Ort::ThrowOnError(Ort::GetApi().RegisterAllocator(env, &allocator));
  }

  Ort::MemoryInfo memory = Ort::MemoryInfo::CreateCpu(OrtDeviceAllocator, OrtMemTypeDefault);
  EngineAllocator allocator{memory};
  Ort::Env env;
};

/// The library while anybody holds it. Counted here and not by a shared pointer, which would say
/// that nobody holds the library any more while its end still goes on, on the thread of the last
/// holder: the next one would begin in the midst of it.
class Holders {
 public:
  /// One more.
  Ort::Env& Enter() {
    const std::lock_guard lock(mutex_);
    if (library_ == nullptr) library_ = std::make_unique<Library>();
    ++count_;
    return library_->env;
  }

  /// One less. Whoever enters waits until this is through.
  void Leave() noexcept {
    const std::lock_guard lock(mutex_);
    if (--count_ == 0) library_.reset();
  }

 private:
  std::mutex mutex_;
  size_t count_ = 0;
  std::unique_ptr<Library> library_;  // null while nobody holds it
};

/// Never destroyed: a session may still execute while the process ends.
Holders& OfProcess() {
  static Holders& holders = *new Holders;
  return holders;
}

}  // namespace

OrtLoggingLevel EngineLogSeverity() {
  return IsLogged(LogLevel::kInfo) ? ORT_LOGGING_LEVEL_WARNING : ORT_LOGGING_LEVEL_FATAL;
}

std::shared_ptr<Ort::Env> SharedEnvironment() {
  // Called as well where the pointer itself cannot be made.
  const auto leave = [](Ort::Env*) { OfProcess().Leave(); };
  return {&OfProcess().Enter(), leave};
}

}  // namespace vorn::host
