// Starting, handing out and ending threads.
#include "host/engine/engine_threads.h"

#include <system_error>

#include "host/common/failure.h"

namespace vorn::host {

EngineThreads::EngineThreads(int threads) {
  const auto count = static_cast<size_t>(threads - 1);
  threads_.reserve(count);
  try {
    while (threads_.size() < count) {
      Waiting& waiting = threads_.emplace_back();
      waiting.thread = std::thread([todo = waiting.work.get_future()]() mutable {
        const Work work = todo.get();
        if (work.function != nullptr) work.function(work.argument);
      });
    }
  } catch (const std::system_error& e) {
    EndIdle();
    throw Failure(VORN_ERROR_INTERNAL, "'threads' is ", threads,
                  ", but one of them cannot be started (", e.code().message(),
                  "); give a smaller number, or the process more threads and memory");
  } catch (...) {
    EndIdle();
    throw;
  }
}

EngineThreads::~EngineThreads() { EndIdle(); }

void EngineThreads::GiveTo(Ort::SessionOptions& options) {
  options.SetCustomThreadCreationOptions(this);
  options.SetCustomCreateThreadFn(&HandOut);
  options.SetCustomJoinThreadFn(&Join);
}

OrtCustomThreadHandle EngineThreads::HandOut(void* threads, OrtThreadWorkerFn function,
                                             void* argument) {
  auto& self = *static_cast<EngineThreads*>(threads);
  if (self.handedOut_ == self.threads_.size()) return nullptr;  // refused by the library
  Waiting& waiting = self.threads_[self.handedOut_++];
  waiting.work.set_value({.function = function, .argument = argument});
  return reinterpret_cast<OrtCustomThreadHandle>(&waiting);
}

void EngineThreads::Join(OrtCustomThreadHandle handle) {
  // The library only hands back what HandOut gave it, which it shows as constant.
  const_cast<Waiting*>(reinterpret_cast<const Waiting*>(handle))->thread.join();
}

/// Those that the library did not take, or take back.
void EngineThreads::EndIdle() {
  for (; handedOut_ < threads_.size(); ++handedOut_) {
    Waiting& waiting = threads_[handedOut_];
    if (!waiting.thread.joinable()) continue;  // it is the one that was not started
    waiting.work.set_value({});
    waiting.thread.join();
  }
}

}  // namespace vorn::host
