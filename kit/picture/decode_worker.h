// Pictures decoded in child processes: one that crashes the decoder, hangs in it or eats memory
// costs a line, and the next one is decoded by a new child.
//
// The children are forked, not executed: a library does not know the program that it is part of,
// and nothing has to be found or handed over. A process with threads must not fork, though, and a
// child that died must be replaced at any time. So each worker has a guardian, forked when the
// workers are made, that has no threads, ever, and forks one child after the other.
#ifndef VORN_KIT_PICTURE_DECODE_WORKER_H_
#define VORN_KIT_PICTURE_DECODE_WORKER_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kit/picture/decode.h"

namespace vorn::kit {

struct WorkerLimits {
  uint64_t memoryBytes = uint64_t{2} << 30;  ///< of addresses, beyond what a child begins with
  std::chrono::milliseconds time{30000};     ///< for one picture
  DecodeLimits decode;
};

/// Decodes the file of that name, in a child. Throws a Fault.
using DecodeFileFunction = std::function<DecodedPicture(const std::string&, const DecodeLimits&)>;

/// Owns the processes and a thread for each. Make it before the process has other threads. The
/// paths are relative to the folder that is the current one then. Safe to use from several threads.
class PictureWorkers {
 public:
  /// Throws a Fault of kLimit if there can be no more processes.
  PictureWorkers(size_t count, const WorkerLimits& limits,
                 DecodeFileFunction decode = DecodePictureFile);
  /// Ends the children, whatever they are at. Pictures that are still waited for are refused.
  ~PictureWorkers();
  PictureWorkers(const PictureWorkers&) = delete;
  PictureWorkers& operator=(const PictureWorkers&) = delete;

  /// The picture comes, or a Fault: what DecodePictureFile throws; of kInput for a picture at which
  /// the decoder crashed; of kLimit for one that took too long or too much memory.
  [[nodiscard]] std::future<DecodedPicture> Decode(std::string path);

 private:
  struct Task {
    std::string path;
    std::promise<DecodedPicture> promise;
  };
  class Worker;

  void Serve(Worker& worker);
  void End();

  std::vector<std::unique_ptr<Worker>> workers_;
  std::mutex mutex_;
  std::condition_variable hasTask_;
  std::deque<Task> tasks_;
  bool isEnding_ = false;
  std::vector<std::thread> threads_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_PICTURE_DECODE_WORKER_H_
