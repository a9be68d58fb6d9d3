#include "kit/prepare/workers.h"

#include <malloc.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <new>
#include <vector>

#include "kit/common/owned_file.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kTickMs = 100;
constexpr size_t kMostAnswerBytes = 16 << 20;
constexpr size_t kMostGiven = 2;  // tasks of a child: it need not wait for the next one
constexpr int kKeptBytes = 32 << 20;

struct AnswerHead {
  uint32_t status;
  uint32_t bytes;
};

bool WriteAll(int fd, const void* from, size_t bytes) {
  const char* at = static_cast<const char*>(from);
  while (bytes > 0) {
    const ssize_t written = send(fd, at, bytes, MSG_NOSIGNAL);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    at += written;
    bytes -= static_cast<size_t>(written);
  }
  return true;
}

bool ReadAll(int fd, void* to, size_t bytes) {
  char* at = static_cast<char*>(to);
  while (bytes > 0) {
    const ssize_t taken = recv(fd, at, bytes, 0);
    if (taken < 0 && errno == EINTR) continue;
    if (taken <= 0) return false;
    at += taken;
    bytes -= static_cast<size_t>(taken);
  }
  return true;
}

// ---- In the child -------------------------------------------------------------------------------

uint64_t MappedBytes() {
  std::FILE* file = std::fopen("/proc/self/statm", "re");
  if (file == nullptr) return 0;
  unsigned long long pages = 0;
  if (std::fscanf(file, "%llu", &pages) != 1) pages = 0;
  std::fclose(file);
  return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

void LimitMemory(uint64_t bytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  (void)bytes;  // their shadow is mapped as terabytes
  (void)MappedBytes;
#else
  const rlimit limit{.rlim_cur = MappedBytes() + bytes, .rlim_max = MappedBytes() + bytes};
  (void)setrlimit(RLIMIT_AS, &limit);  // without it there is one guard less
#endif
}

// A task takes as much memory as the one before. What the C library would give back to the system,
// it would get again page by page, each cleared and each a fault.
void KeepMemory() {
  (void)mallopt(M_MMAP_THRESHOLD, kKeptBytes);
  (void)mallopt(M_TRIM_THRESHOLD, 4 * kKeptBytes);
  (void)mallopt(M_TOP_PAD, kKeptBytes / 8);
}

TaskAnswer AnswerTo(uint64_t task, const std::function<std::string(uint64_t)>& work,
                    uint64_t memoryBytes) {
  try {
    return {task, ExitStatus::kDone, work(task)};
  } catch (const Fault& fault) {
    return {task, fault.Status(), fault.what()};
  } catch (const std::bad_alloc&) {
    return {task, ExitStatus::kLimit,
            "takes more memory than the " + SizeText(memoryBytes) + " that it may"};
  } catch (const std::exception& error) {
    return {task, ExitStatus::kOwnFault, error.what()};
  }
}

[[noreturn]] void Serve(int fd, pid_t parent, const WorkerLimits& limits,
                        const std::function<std::string(uint64_t)>& work) {
  // Nobody would want the answer of a child whose parent has died.
  (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  // A terminal's Ctrl-C is the parent's to answer.
  (void)signal(SIGINT, SIG_IGN);
  const rlimit noCore{.rlim_cur = 0, .rlim_max = 0};
  (void)setrlimit(RLIMIT_CORE, &noCore);
  LimitMemory(limits.memoryBytes);
  KeepMemory();
  uint64_t task = 0;
  while (ReadAll(fd, &task, sizeof task)) {
    TaskAnswer answer = AnswerTo(task, work, limits.memoryBytes);
    answer.text.resize(std::min(answer.text.size(), kMostAnswerBytes));
    const AnswerHead head{static_cast<uint32_t>(answer.status),
                          static_cast<uint32_t>(answer.text.size())};
    // At once: a parent that woke for the head would wait for the text, and wake again.
    std::string message(reinterpret_cast<const char*>(&head), sizeof head);
    message += answer.text;
    if (!WriteAll(fd, message.data(), message.size())) break;
  }
  _exit(0);
}

// ---- In the parent ------------------------------------------------------------------------------

// One child, and the tasks that it was given: the first one it is at.
class Worker {
 public:
  Worker(const WorkerLimits& limits, const std::function<std::string(uint64_t)>& work)
      : limits_(limits), work_(work) {}
  ~Worker() { (void)End(); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  [[nodiscard]] int Descriptor() const { return pipe_.Get(); }
  [[nodiscard]] size_t Tasks() const { return tasks_.size(); }
  [[nodiscard]] bool IsLate() const { return !tasks_.empty() && Clock::now() > deadline_; }

  void Give(uint64_t task) {
    tasks_.push_back(task);
    if (tasks_.size() == 1) deadline_ = Clock::now() + limits_.time;
    const bool isSent = pipe_.IsOpen() && WriteAll(pipe_.Get(), &task, sizeof task);
    if (isSent) ++sent_;
    // One that died at another task is found out when the answer to that does not come.
    if (!isSent && tasks_.size() == 1) GiveAgain();
  }

  // What has come: an answer, or the end of the child.
  TaskAnswer Take() {
    AnswerHead head{};
    TaskAnswer answer{tasks_.front(), ExitStatus::kDone, ""};
    if (pipe_.IsOpen() && ReadAll(pipe_.Get(), &head, sizeof head) &&
        head.bytes <= kMostAnswerBytes) {
      answer.status = static_cast<ExitStatus>(head.status);
      answer.text.resize(head.bytes);
      if (ReadAll(pipe_.Get(), answer.text.data(), head.bytes)) {
        BeginNext();
        return answer;
      }
    }
    const int status = End();
    BeginNext();
    answer.status = ExitStatus::kInput;
    answer.text = WIFSIGNALED(status)
                      ? "ended its process by signal " + std::to_string(WTERMSIG(status)) + " (" +
                            strsignal(WTERMSIG(status)) + ")"
                      : "ended its process";
    return answer;
  }

  TaskAnswer GiveUp() {
    const uint64_t task = tasks_.front();
    (void)End();
    BeginNext();
    return {task, ExitStatus::kLimit,
            "takes longer than the " +
                Counted(static_cast<uint64_t>(limits_.time.count()), "second") + " that it may"};
  }

 private:
  void BeginNext() {
    tasks_.pop_front();
    if (sent_ > 0) --sent_;
    deadline_ = Clock::now() + limits_.time;
    if (!pipe_.IsOpen() || sent_ < tasks_.size()) GiveAgain();
  }

  // To a new child. One that died between two tasks took none with it.
  void GiveAgain() {
    for (int attempt = 0; attempt < 2 && sent_ < tasks_.size(); ++attempt) {
      (void)End();
      Start();
      while (sent_ < tasks_.size() && WriteAll(pipe_.Get(), &tasks_[sent_], sizeof tasks_[sent_]))
        ++sent_;
    }
  }

  void Start() {
    int pair[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) != 0) RefuseStart(errno);
    const pid_t parent = getpid();
    std::fflush(nullptr);  // or a child would write it once more
    pid_ = fork();
    if (pid_ < 0) {
      const int error = errno;
      close(pair[0]);
      close(pair[1]);
      RefuseStart(error);
    }
    if (pid_ == 0) {
      close(pair[0]);
      Serve(pair[1], parent, limits_, work_);
    }
    close(pair[1]);
    pipe_ = OwnedFile(pair[0]);
  }

  [[noreturn]] static void RefuseStart(int error) {
    throw Fault(ExitStatus::kLimit, "no process can be started: " + SystemReason(error));
  }

  int End() {
    if (!pipe_.IsOpen()) return 0;
    pipe_.Close();
    sent_ = 0;
    // One that answers nobody has ended by itself, or has to be ended; the first is told.
    int status = 0;
    pid_t ended = waitpid(pid_, &status, WNOHANG);
    for (int i = 0; ended == 0 && i < 20; ++i) {
      usleep(1000);
      ended = waitpid(pid_, &status, WNOHANG);
    }
    if (ended == 0) {
      kill(pid_, SIGKILL);
      while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
      }
    }
    return status;
  }

  const WorkerLimits& limits_;
  const std::function<std::string(uint64_t)>& work_;
  OwnedFile pipe_;
  pid_t pid_ = -1;
  std::deque<uint64_t> tasks_;
  size_t sent_ = 0;             // of them, to this child
  Clock::time_point deadline_;  // of the first one
};

}  // namespace

void RunTasks(uint64_t tasks, const WorkerLimits& limits,
              const std::function<std::string(uint64_t)>& work,
              const std::function<bool(const TaskAnswer&)>& take,
              const std::function<void()>& idle) {
  std::vector<std::unique_ptr<Worker>> workers;
  const size_t count = std::max<size_t>(1, std::min<uint64_t>(limits.workers, tasks));
  for (size_t i = 0; i < count; ++i) workers.push_back(std::make_unique<Worker>(limits, work));
  uint64_t next = 0;
  uint64_t open = tasks;
  while (open > 0) {
    // One each before a second one, and of the last tasks no second one: they go to who is free
    // first, and do not wait behind a slow one.
    for (size_t given = 1; given <= kMostGiven; ++given) {
      for (const auto& worker : workers) {
        const bool isFew = given > 1 && tasks - next < count;
        if (worker->Tasks() < given && next < tasks && !isFew) worker->Give(next++);
      }
    }
    std::vector<pollfd> waited;
    std::vector<Worker*> busy;
    for (const auto& worker : workers) {
      if (worker->Tasks() == 0) continue;
      waited.push_back({worker->Descriptor(), POLLIN, 0});
      busy.push_back(worker.get());
    }
    (void)poll(waited.data(), waited.size(), kTickMs);
    for (size_t i = 0; i < busy.size(); ++i) {
      const bool hasCome = waited[i].revents != 0;
      if (!hasCome && !busy[i]->IsLate()) continue;
      --open;
      if (!take(hasCome ? busy[i]->Take() : busy[i]->GiveUp())) return;
    }
    idle();
  }
}

}  // namespace vorn::kit
