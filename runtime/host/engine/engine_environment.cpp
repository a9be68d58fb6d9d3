// The environment and what it needs to its end.
#include "host/engine/engine_environment.h"

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

}  // namespace

OrtLoggingLevel EngineLogSeverity() {
  return IsLogged(LogLevel::kInfo) ? ORT_LOGGING_LEVEL_WARNING : ORT_LOGGING_LEVEL_FATAL;
}

std::shared_ptr<Ort::Env> SharedEnvironment() {
  static std::weak_ptr<Library> alive;
  std::shared_ptr<Library> library = alive.lock();
  if (library == nullptr) alive = library = std::make_shared<Library>();
  return {library, &library->env};
}

}  // namespace vorn::host
