#include "kit/fleet/child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr std::chrono::milliseconds kChildTick{20};
constexpr std::chrono::seconds kBeat{5};
constexpr std::chrono::seconds kFirstAsk{1};  // for a limit; then rarer and rarer
constexpr std::chrono::seconds kLastAsk{32};
constexpr int kNotStarted = 127;
constexpr size_t kPieceBytes = 64 * 1024;

using Clock = std::chrono::steady_clock;

OwnedFile Open(const std::string& path, int flags) {
  OwnedFile file(open(path.c_str(), flags | O_CLOEXEC, 0666));
  if (file.IsOpen()) return file;
  throw Fault(ExitStatus::kLimit, "cannot open " + Quoted(path) + ": " + SystemReason(errno));
}

OwnedFile OpenInput(const ChildRequest& request) {
  OwnedFile file = Open(request.inputFile, O_RDONLY);
  if (lseek(file.Get(), static_cast<off_t>(request.inputFrom), SEEK_SET) >= 0) return file;
  throw Fault(ExitStatus::kLimit,
              "cannot read " + Quoted(request.inputFile) + ": " + SystemReason(errno));
}

// A pipe that breaks is told by what write returns.
class BrokenPipesIgnored {
 public:
  BrokenPipesIgnored() {
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &before_);
  }
  ~BrokenPipesIgnored() { sigaction(SIGPIPE, &before_, nullptr); }
  BrokenPipesIgnored(const BrokenPipesIgnored&) = delete;
  BrokenPipesIgnored& operator=(const BrokenPipesIgnored&) = delete;
  void RestoreInChild() const { sigaction(SIGPIPE, &before_, nullptr); }

 private:
  struct sigaction before_ {};
};

// What goes to the child's standard input, as far as it takes it by now.
class Feed {
 public:
  Feed(const ChildRequest& request, int pipe) : request_(request), pipe_(pipe) {
    fcntl(pipe, F_SETFL, O_NONBLOCK);
    waiting_ = request.input;
    if (!request.inputFile.empty()) file_.emplace(OpenInput(request));
  }

  // Returns whether there is more that the child did not take yet.
  bool GoOn() {
    while (pipe_.IsOpen() && Write()) {
    }
    return pipe_.IsOpen() && at_ < waiting_.size();
  }

  // Until it may have taken some of it.
  void AwaitRoom(std::chrono::milliseconds longest) const {
    pollfd room{.fd = pipe_.Get(), .events = POLLOUT, .revents = 0};
    (void)poll(&room, 1, static_cast<int>(longest.count()));
  }

  void End() { pipe_.Close(); }

 private:
  // Whether there may be more to write right now.
  bool Write() {
    if (at_ == waiting_.size() && !Refill()) return false;
    const ssize_t written = write(pipe_.Get(), waiting_.data() + at_, waiting_.size() - at_);
    if (written > 0) {
      at_ += static_cast<size_t>(written);
      return true;
    }
    if (written < 0 && errno == EINTR) return true;
    if (written < 0 && errno != EAGAIN) End();  // nobody reads it any more
    return false;
  }

  bool Refill() {
    at_ = 0;
    waiting_.clear();
    if (file_) {
      waiting_.resize(kPieceBytes);
      const ssize_t taken = read(file_->Get(), waiting_.data(), waiting_.size());
      waiting_.resize(static_cast<size_t>(std::max<ssize_t>(taken, 0)));
      if (!waiting_.empty()) return true;
      file_.reset();
    }
    if (!request_.isKeptAlive) {
      End();
      return false;
    }
    const auto now = Clock::now();
    if (now < beatAt_) return false;
    beatAt_ = now + kBeat;
    waiting_ = "\n";
    return true;
  }

  const ChildRequest& request_;
  OwnedFile pipe_;
  std::optional<OwnedFile> file_;
  std::string waiting_;
  size_t at_ = 0;
  Clock::time_point beatAt_ = Clock::now() + kBeat;
};

void Become(const ChildRequest& request, int in, int out, int err, const sigset_t& mask,
            pid_t parent) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(kNotStarted);
  setpgid(0, 0);
  dup2(in, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  std::vector<char*> words;
  for (const std::string& word : request.command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  if (request.folder.empty() || chdir(request.folder.c_str()) == 0) execvp(words[0], words.data());
  const std::string text = request.command[0] + ": " + SystemReason(errno) + "\n";
  (void)!write(STDERR_FILENO, text.data(), text.size());
  _exit(kNotStarted);
}

// Takes it off the text, with what ends it.
std::string TakeLastLine(std::string& text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  const size_t end = text.rfind('\n');
  std::string line = end == std::string::npos ? text : text.substr(end + 1);
  text.resize(end == std::string::npos ? 0 : end);
  return line;
}

}  // namespace

ChildEnd RunChild(const ChildRequest& request, StopSignals& signals) {
  const OwnedFile out = Open(request.out, O_WRONLY | O_CREAT | O_TRUNC);
  const OwnedFile err = Open(request.err, O_WRONLY | O_CREAT | O_TRUNC);
  std::array<int, 2> pipe{-1, -1};
  OwnedFile read;
  if (request.input.empty() && !request.inputFile.empty() && !request.isKeptAlive) {
    read = OpenInput(request);  // as fast as the child reads it
  } else if (pipe2(pipe.data(), O_CLOEXEC) == 0) {
    read = OwnedFile(pipe[0]);
  } else {
    throw Fault(ExitStatus::kLimit, "no pipe can be made: " + SystemReason(errno));
  }
  const BrokenPipesIgnored ignored;
  std::optional<Feed> feed;
  if (pipe[1] >= 0) feed.emplace(request, pipe[1]);
  const auto began = Clock::now();
  const pid_t parent = getpid();
  const pid_t child = fork();
  if (child == 0) {
    ignored.RestoreInChild();
    Become(request, read.Get(), out.Get(), err.Get(), signals.MaskBefore(), parent);
  }
  if (child < 0) {
    throw Fault(ExitStatus::kLimit, "no process can be started: " + SystemReason(errno));
  }
  setpgid(child, child);  // whoever comes first
  read.Close();
  ChildEnd end;
  end.limit = request.limit;
  std::chrono::seconds askBehind = kFirstAsk;
  Clock::time_point askAt = began + askBehind;
  std::optional<Clock::time_point> killAt;
  Clock::time_point tickAt = began;
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    const auto now = Clock::now();
    if (!end.limit && request.laterLimit && now >= askAt) {
      end.limit = request.laterLimit();
      askBehind = std::min(askBehind * 2, kLastAsk);
      askAt = now + askBehind;
    }
    if (!killAt && (signals.Asked() != 0 || (end.limit && now - began > *end.limit))) {
      (signals.Asked() != 0 ? end.wasStopped : end.wasLate) = true;
      if (feed) feed->End();
      if (!request.isKeptAlive) kill(-child, SIGTERM);
      killAt = now + request.grace;
    }
    if (killAt && now > *killAt) kill(-child, SIGKILL);
    const bool isMoreToTake = !killAt && feed && feed->GoOn();
    if (request.tick && now >= tickAt) {
      request.tick();
      tickAt = now + kChildTick;
    }
    if (isMoreToTake) feed->AwaitRoom(kChildTick);
    signals.Wait(isMoreToTake ? std::chrono::milliseconds(0) : kChildTick);
  }
  end.time = Clock::now() - began;
  if (WIFEXITED(status)) end.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  return end;
}

std::string DescribeChildEnd(const ChildEnd& end) {
  if (end.wasStopped) return "was stopped";
  if (end.wasLate) {
    const auto limit = end.limit.value_or(std::chrono::milliseconds(0));
    return "took longer than " +
           std::to_string(std::chrono::ceil<std::chrono::seconds>(limit).count()) + " s";
  }
  if (end.signal) return "ended by " + SignalName(*end.signal);
  return "ended with status " + std::to_string(end.status.value_or(0));
}

std::string LastLineOf(const std::string& path) {
  constexpr uint64_t kMost = 4096;
  const uint64_t size = SizeOfFile(path);
  std::string text = ReadFrom(path, size - std::min(size, kMost), kMost);
  std::string last = TakeLastLine(text);
  // tar's last words tell nothing; those before them do.
  const bool isOfTar = last.ends_with("due to previous errors");
  const std::string before = isOfTar ? TakeLastLine(text) : "";
  return PrintableExcerpt(before.empty() ? last : before);
}

}  // namespace vorn::kit
