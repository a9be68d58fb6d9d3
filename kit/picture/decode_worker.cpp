// One socket a worker, of packets, whose other end guardian and child share:
//
//     to the child      number of the request (4) | path
//     from the child    number | kind (4) | what the kind says
//         kHead         a Head, then: format \0 decoder \0 remark \0 …
//         kPixels       the next part of the pixels, until there are as many as the head says
//         kFault        status (4) | what it says
//     from the guardian number | kDied (4) | how the child ended, as waitpid has it (4)
//
// The guardian learns from a page that they share which request the child was at. Nothing of what
// comes is trusted: the child may be under the control of a picture.
#include "kit/picture/decode_worker.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <new>
#include <system_error>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// Below the buffer of a socket, which holds 208 KiB on a system that nobody has tuned.
constexpr size_t kMostPacket = 96 << 10;
constexpr size_t kMostText = 64 << 10;

enum class Kind : uint32_t { kHead = 1, kPixels, kFault, kDied };

struct PacketHead {
  uint32_t number;
  Kind kind;
};

struct Head {
  uint32_t width;
  uint32_t height;
  uint32_t channels;
  uint32_t type;
  int32_t orientation;
};

// ---- the child's side

struct ChildSide {
  int socket;
  const WorkerLimits& limits;
  const DecodeFileFunction& decode;
  std::atomic<uint32_t>* current;  // shared with the guardian: the number of the request, or 0
};

// False if there is nobody to send to.
bool Send(int socket, uint32_t number, Kind kind, const void* data, size_t bytes) {
  PacketHead head{number, kind};
  std::array<iovec, 2> parts{iovec{&head, sizeof head}, iovec{const_cast<void*>(data), bytes}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  ssize_t sent = 0;
  do {
    sent = sendmsg(socket, &message, MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  return sent >= 0;
}

bool SendFault(int socket, uint32_t number, ExitStatus status, const std::string& text) {
  const auto value = static_cast<uint32_t>(status);
  std::string data(reinterpret_cast<const char*>(&value), sizeof value);
  data += text.substr(0, kMostText);
  return Send(socket, number, Kind::kFault, data.data(), data.size());
}

bool SendPicture(int socket, uint32_t number, const DecodedPicture& decoded) {
  const Picture& picture = decoded.picture;
  const Head head{picture.width, picture.height, picture.channels,
                  static_cast<uint32_t>(picture.type), decoded.orientation};
  std::string data(reinterpret_cast<const char*>(&head), sizeof head);
  const auto append = [&](const std::string& text) {
    if (data.size() + text.size() < kMostText) data += text + '\0';
  };
  append(decoded.format);
  append(decoded.decoder);
  for (const std::string& remark : decoded.remarks) append(remark);
  if (!Send(socket, number, Kind::kHead, data.data(), data.size())) return false;
  const std::byte* pixels = picture.pixels.data();
  for (size_t left = picture.pixels.size(); left > 0;) {
    const size_t part = std::min(left, kMostPacket);
    if (!Send(socket, number, Kind::kPixels, pixels, part)) return false;
    pixels += part;
    left -= part;
  }
  return true;
}

// SIGALRM ends the process: no handler, which a decoder that hangs could not be trusted to survive.
void SetAlarm(std::chrono::milliseconds time) {
  itimerval timer{};
  timer.it_value.tv_sec = time.count() / 1000;
  timer.it_value.tv_usec = time.count() % 1000 * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

bool AnswerRequest(const ChildSide& side, uint32_t number, const std::string& path) {
  const std::string name = "the picture " + Quoted(path);
  SetAlarm(side.limits.time);
  try {
    const DecodedPicture decoded = side.decode(path, side.limits.decode);
    SetAlarm({});
    return SendPicture(side.socket, number, decoded);
  } catch (const Fault& fault) {
    SetAlarm({});
    return SendFault(side.socket, number, fault.Status(), fault.what());
  } catch (const std::bad_alloc&) {
    SetAlarm({});
    return SendFault(
        side.socket, number, ExitStatus::kLimit,
        name + " needs more memory than the limit of " + SizeText(side.limits.memoryBytes));
  } catch (const std::exception& error) {
    SetAlarm({});
    return SendFault(side.socket, number, ExitStatus::kOwnFault,
                     name + " cannot be decoded: " + PrintableExcerpt(error.what()));
  }
}

// A sanitizer's own maps are larger than any limit.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
void LimitMemory(uint64_t bytes) {
  unsigned long long pages = 0;
  if (FILE* file = std::fopen("/proc/self/statm", "re")) {
    if (std::fscanf(file, "%llu", &pages) != 1) pages = 0;
    std::fclose(file);
  }
  const rlim_t most = bytes + pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
  const rlimit limit{most, most};
  setrlimit(RLIMIT_AS, &limit);
}
#else
void LimitMemory(uint64_t) {}
#endif

[[noreturn]] void RunChild(const ChildSide& side) {
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  LimitMemory(side.limits.memoryBytes);
  std::string packet(sizeof(uint32_t) + PATH_MAX, '\0');
  while (true) {
    const ssize_t got = recv(side.socket, packet.data(), packet.size(), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < static_cast<ssize_t>(sizeof(uint32_t))) _exit(0);  // the other end is closed
    uint32_t number = 0;
    std::memcpy(&number, packet.data(), sizeof number);
    side.current->store(number);
    const std::string path(packet.data() + sizeof number, static_cast<size_t>(got) - sizeof number);
    if (!AnswerRequest(side, number, path)) _exit(0);
    side.current->store(0);
  }
}

// ---- the guardian

// What the caller has set up for itself does not hold for its children.
void ForgetTheCaller(int socket) {
  for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGALRM, SIGPIPE, SIGCHLD, SIGSEGV,
                           SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
    signal(number, SIG_DFL);
  }
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  // Sockets of the other workers, too: who holds one keeps its child from seeing the end.
  dup2(socket, STDIN_FILENO);
  const int nothing = open("/dev/null", O_WRONLY);
  dup2(nothing, STDOUT_FILENO);
  dup2(nothing, STDERR_FILENO);
  syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
}

// The system may be out of processes for a moment.
pid_t ForkPatiently() {
  constexpr int kTries = 100;
  constexpr unsigned kPauseUs = 100000;
  pid_t child = fork();
  for (int i = 0; child < 0 && i < kTries; ++i) {
    usleep(kPauseUs);
    child = fork();
  }
  return child;
}

[[noreturn]] void RunGuardian(const ChildSide& side) {
  while (true) {
    side.current->store(0);
    const pid_t child = ForkPatiently();
    if (child < 0) _exit(1);
    if (child == 0) RunChild(side);
    int ended = 0;
    while (waitpid(child, &ended, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(ended) && WEXITSTATUS(ended) == 0) _exit(0);
    const uint32_t number = side.current->load();
    // Without a request it was no picture that ended it, and nobody waits.
    if (number != 0 && !Send(side.socket, number, Kind::kDied, &ended, sizeof ended)) _exit(0);
  }
}

std::pair<ExitStatus, std::string> ReasonOf(int ended, const WorkerLimits& limits) {
  const int signal = WIFSIGNALED(ended) ? WTERMSIG(ended) : 0;
  if (signal == SIGALRM) {
    return {ExitStatus::kLimit,
            "takes longer than the limit of " + std::to_string(limits.time.count()) + " ms"};
  }
  if (signal == SIGKILL) {
    return {ExitStatus::kLimit,
            "was being decoded when the system killed the decoder, which it "
            "does where memory is short"};
  }
  if (signal != 0) {
    return {ExitStatus::kInput, "makes the decoder crash (signal " + std::to_string(signal) + ")"};
  }
  return {ExitStatus::kInput,
          "makes the decoder end with status " + std::to_string(WEXITSTATUS(ended))};
}

}  // namespace

// ---- the caller's side

class PictureWorkers::Worker {
 public:
  Worker(const WorkerLimits& limits, const DecodeFileFunction& decode) : limits_(limits) {
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets) != 0) Refuse(errno);
    void* page = mmap(nullptr, sizeof(std::atomic<uint32_t>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    const int mapError = errno;
    guardian_ = page == MAP_FAILED ? -1 : fork();
    const int forkError = page == MAP_FAILED ? mapError : errno;
    if (guardian_ == 0) {
      setpgid(0, 0);
      ForgetTheCaller(sockets[1]);
      RunGuardian({STDIN_FILENO, limits_, decode, new (page) std::atomic<uint32_t>(0)});
    }
    if (page != MAP_FAILED) munmap(page, sizeof(std::atomic<uint32_t>));
    close(sockets[1]);
    socket_ = sockets[0];
    if (guardian_ < 0) {
      close(socket_);
      Refuse(forkError);
    }
    setpgid(guardian_, guardian_);  // as it does itself: whoever is first
  }

  ~Worker() {
    Kill();
    while (waitpid(guardian_, nullptr, 0) < 0 && errno == EINTR) {
    }
    close(socket_);
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  // The guardian and its child. It is waited for in the destructor only, so that the id is theirs.
  void Kill() const { kill(-guardian_, SIGKILL); }

  DecodedPicture Decode(const std::string& path) {
    ++number_;
    if (number_ == 0) number_ = 1;
    std::string request(reinterpret_cast<const char*>(&number_), sizeof number_);
    request += path;
    if (path.size() > PATH_MAX) {
      throw Fault(ExitStatus::kInput, "the picture " + Quoted(path) + " has too long a path");
    }
    ssize_t sent = 0;
    do {
      sent = send(socket_, request.data(), request.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0) RefuseGone(path);
    return ReceivePicture(path);
  }

 private:
  [[noreturn]] static void Refuse(int error) {
    throw Fault(ExitStatus::kLimit,
                "no process can be made to decode pictures in: " + SystemReason(error));
  }

  [[noreturn]] static void RefuseGone(const std::string& path) {
    throw Fault(ExitStatus::kLimit, "the picture " + Quoted(path) +
                                        " is not decoded: the processes for that have ended");
  }

  [[noreturn]] static void RefuseNonsense(const std::string& path) {
    throw Fault(ExitStatus::kInput,
                "the picture " + Quoted(path) + " makes the decoder answer nonsense");
  }

  // The next packet of this request; `data` is filled with what is behind its head, and the size of
  // that is returned. What says that the child has failed is thrown.
  std::pair<Kind, size_t> Receive(const std::string& path, void* data, size_t most) {
    while (true) {
      PacketHead head{};
      std::array<iovec, 2> parts{iovec{&head, sizeof head}, iovec{data, most}};
      msghdr message{};
      message.msg_iov = parts.data();
      message.msg_iovlen = parts.size();
      const ssize_t got = recvmsg(socket_, &message, 0);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) RefuseGone(path);
      if (static_cast<size_t>(got) < sizeof head) RefuseNonsense(path);
      if (head.number != number_) continue;  // of a request that was given up
      const size_t bytes = static_cast<size_t>(got) - sizeof head;
      if (head.kind == Kind::kDied) {
        // Nothing that is received is shorter than this.
        int ended = 0;
        if (bytes < sizeof ended) RefuseNonsense(path);
        std::memcpy(&ended, data, sizeof ended);
        const auto [status, reason] = ReasonOf(ended, limits_);
        throw Fault(status, "the picture " + Quoted(path) + " " + reason);
      }
      if ((message.msg_flags & MSG_TRUNC) != 0) RefuseNonsense(path);
      return {head.kind, bytes};
    }
  }

  DecodedPicture ReceivePicture(const std::string& path) {
    std::string packet(kMostText + 2 * sizeof(Head), '\0');
    const auto [kind, bytes] = Receive(path, packet.data(), packet.size());
    packet.resize(bytes);
    if (kind == Kind::kFault) ThrowFault(path, packet);
    Head head{};
    if (kind != Kind::kHead || bytes < sizeof head) RefuseNonsense(path);
    std::memcpy(&head, packet.data(), sizeof head);
    CheckHead(path, head);
    DecodedPicture decoded;
    decoded.orientation = head.orientation;
    ReadTexts(std::string_view(packet).substr(sizeof head), decoded);
    ReceivePixels(path, head, decoded.picture);
    return decoded;
  }

  [[noreturn]] static void ThrowFault(const std::string& path, std::string_view packet) {
    uint32_t status = 0;
    if (packet.size() < sizeof status) RefuseNonsense(path);
    std::memcpy(&status, packet.data(), sizeof status);
    std::string text(packet.substr(sizeof status));
    for (const ExitStatus known : {ExitStatus::kInput, ExitStatus::kLimit, ExitStatus::kOwnFault}) {
      if (status == static_cast<uint32_t>(known)) throw Fault(known, text);
    }
    RefuseNonsense(path);
  }

  void CheckHead(const std::string& path, const Head& head) const {
    const uint64_t pixels = uint64_t{head.width} * head.height;
    const bool isWhole = head.width > 0 && head.height > 0 && head.channels >= 1 &&
                         head.channels <= 4 &&
                         head.type <= static_cast<uint32_t>(PixelType::kFloat32) &&
                         head.orientation >= 1 && head.orientation <= 8;
    if (!isWhole || pixels > limits_.decode.mostPixels ||
        pixels > limits_.decode.mostBytes /
                     (head.channels * BytesOf(static_cast<PixelType>(head.type)))) {
      RefuseNonsense(path);
    }
  }

  static void ReadTexts(std::string_view texts, DecodedPicture& decoded) {
    std::vector<std::string> read;
    while (!texts.empty()) {
      const size_t end = std::min(texts.find('\0'), texts.size() - 1);
      read.emplace_back(texts.substr(0, end));
      texts.remove_prefix(end + 1);
    }
    read.resize(std::max<size_t>(read.size(), 2));
    decoded.format = read[0];
    decoded.decoder = read[1];
    decoded.remarks.assign(read.begin() + 2, read.end());
  }

  // In place: the pixels of a packet are those of the picture from there on. A packet that says
  // that the child died may write the 4 bytes of that.
  void ReceivePixels(const std::string& path, const Head& head, Picture& picture) {
    picture =
        MakePicture(head.width, head.height, head.channels, static_cast<PixelType>(head.type));
    const size_t bytes = picture.pixels.size();
    picture.pixels.resize(bytes + sizeof(int));
    for (size_t taken = 0; taken < bytes;) {
      const auto [kind, got] =
          Receive(path, picture.pixels.data() + taken, picture.pixels.size() - taken);
      if (kind != Kind::kPixels || got == 0 || got > bytes - taken) RefuseNonsense(path);
      taken += got;
    }
    picture.pixels.resize(bytes);
  }

  const WorkerLimits limits_;
  int socket_ = -1;
  pid_t guardian_ = -1;
  uint32_t number_ = 0;
};

PictureWorkers::PictureWorkers(size_t count, const WorkerLimits& limits,
                               DecodeFileFunction decode) {
  // All processes before the first thread.
  for (size_t i = 0; i < count; ++i) {
    workers_.push_back(std::make_unique<Worker>(limits, decode));
  }
  try {
    for (const std::unique_ptr<Worker>& worker : workers_) {
      threads_.emplace_back([this, &worker] { Serve(*worker); });
    }
  } catch (const std::system_error&) {
    End();
    throw Fault(ExitStatus::kLimit, "no thread can be made for each process that decodes pictures");
  }
}

PictureWorkers::~PictureWorkers() { End(); }

void PictureWorkers::End() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    isEnding_ = true;
  }
  hasTask_.notify_all();
  for (const std::unique_ptr<Worker>& worker : workers_) worker->Kill();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  for (Task& task : tasks_) {
    task.promise.set_exception(std::make_exception_ptr(
        Fault(ExitStatus::kLimit,
              "the picture " + Quoted(task.path) + " is not decoded: the work has ended")));
  }
  tasks_.clear();
}

std::future<DecodedPicture> PictureWorkers::Decode(std::string path) {
  Task task{std::move(path), {}};
  std::future<DecodedPicture> future = task.promise.get_future();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  hasTask_.notify_one();
  return future;
}

void PictureWorkers::Serve(Worker& worker) {
  while (true) {
    std::unique_lock<std::mutex> lock(mutex_);
    hasTask_.wait(lock, [this] { return isEnding_ || !tasks_.empty(); });
    if (isEnding_) return;
    Task task = std::move(tasks_.front());
    tasks_.pop_front();
    lock.unlock();
    try {
      task.promise.set_value(worker.Decode(task.path));
    } catch (...) {
      task.promise.set_exception(std::current_exception());
    }
  }
}

}  // namespace vorn::kit
