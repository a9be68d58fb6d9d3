// The threads of a session's pool, started before the session is opened.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_THREADS_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_THREADS_H_

#include <onnxruntime_cxx_api.h>

#include <cstddef>
#include <future>
#include <thread>
#include <vector>

namespace vorn::host {

/// Threads that wait for what ONNX Runtime wants done on them. The library is not left to start its
/// own: where its second one cannot be started, it waits for the first one for ever.
class EngineThreads {
 public:
  /// All that a session with `threads` needs beside the caller's. Fails with VORN_ERROR_INTERNAL
  /// where one cannot be started, and leaves none.
  explicit EngineThreads(int threads);
  EngineThreads(const EngineThreads&) = delete;
  EngineThreads& operator=(const EngineThreads&) = delete;
  ~EngineThreads();

  /// Has a session that is opened with `options` take these threads. They are for one session, and
  /// have to outlive it.
  void GiveTo(Ort::SessionOptions& options);

 private:
  struct Work {
    OrtThreadWorkerFn function = nullptr;
    void* argument = nullptr;
  };
  struct Waiting {
    std::promise<Work> work;
    std::thread thread;
  };

  static OrtCustomThreadHandle HandOut(void* threads, OrtThreadWorkerFn function, void* argument);
  static void Join(OrtCustomThreadHandle handle);
  void EndIdle();

  std::vector<Waiting> threads_;  // never grows: its elements are handles
  size_t handedOut_ = 0;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_THREADS_H_
