// Writes the coverage counters of a program that a signal ends, that ends by _exit() or becomes
// another; otherwise only exit() does. Linked into every program of the coverage build and into no
// other.
#include <signal.h>
#include <stdarg.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <initializer_list>
#include <vector>

extern "C" void __gcov_dump();
extern "C" void __gcov_reset();

namespace {

// Back to the faulty instruction or to abort(), either of which ends the program now. A signal that
// was sent does not come a second time by itself.
void WriteAndReturn(int signal, siginfo_t* about, void*) {
  struct sigaction byDefault {};
  byDefault.sa_handler = SIG_DFL;
  sigaction(signal, &byDefault, nullptr);
  __gcov_dump();
  const bool isSent = about->si_code <= 0;
  if (isSent) syscall(SYS_tgkill, getpid(), gettid(), signal);
}

const bool kInstalled = [] {
  for (const int signal : {SIGABRT, SIGBUS, SIGFPE, SIGILL, SIGSEGV}) {
    struct sigaction writing {};
    writing.sa_sigaction = WriteAndReturn;
    writing.sa_flags = SA_SIGINFO;
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

// In place of the library's, too: compiled without extensions, the compiler's own care for these is
// not there. A child repeats what its parent had counted, which adds no line to those that ran.
extern "C" void _exit(int status) {
  __gcov_dump();
  while (true) syscall(SYS_exit_group, status);
}

extern "C" int execv(const char* path, char* const words[]) noexcept {
  __gcov_dump();
  __gcov_reset();
  return execve(path, words, environ);
}

extern "C" int execvp(const char* name, char* const words[]) noexcept {
  __gcov_dump();
  __gcov_reset();
  return execvpe(name, words, environ);
}

extern "C" int execl(const char* path, const char* word, ...) noexcept {
  std::vector<char*> words;
  va_list more;
  va_start(more, word);
  for (const char* next = word; next != nullptr; next = va_arg(more, const char*)) {
    words.push_back(const_cast<char*>(next));
  }
  va_end(more);
  words.push_back(nullptr);
  return execv(path, words.data());
}
