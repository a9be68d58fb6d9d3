// Writes the coverage counters of a program that a signal ends; otherwise only exit() does. Linked
// into every program of the coverage build and into no other.
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <initializer_list>

extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

namespace {

// Back to the faulty instruction or to abort(), either of which ends the program now.
void WriteAndReturn(int signal) {
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  sigaction(signal, &byDefault, nullptr);
  __gcov_dump();
}

const bool kInstalled = [] {
  for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV}) {
    struct sigaction writing {};
    writing.sa_handler = WriteAndReturn;
    sigaction(signal, &writing, nullptr);
  }
  return true;
}();

}  // namespace

// In place of the library's: a caller may have put the default back first, and no handler would
// run. What is written here is not written again at the end, should the signal be survived.
extern "C" int raise(int signal) noexcept {
  __gcov_dump();
  __gcov_reset();
  return static_cast<int>(syscall(SYS_tgkill, getpid(), gettid(), signal));
}
