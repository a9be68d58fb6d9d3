// Preloaded, it stumbles over inputs: the first byte of the first one says how an execution goes.
//
//     S   ends by SIGSEGV           F   fails with status 7
//     H   does not come back        E   ends the process with status 0
//     N   a NaN is in output 0      R   output 0 is that of the execution before
//     K   interrupts the launch as soon as it has found that the program ended
//     C   leaves a child that goes by no request; "child" tells its number
//     W   tells by a file ".waits" behind the name in VORN_GATE, and waits for one of that name
//
// With any other byte output 0 is filled with it.
#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vorn/vorn.h"

namespace {

constexpr vorn_status kFailed = 7;

char g_before = 0;

template <typename Function>
Function Next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void Fill(vorn_mdl_dataset* outputs, char byte) {
  vorn_data_buffer* buffer = vorn_mdl_get_dataset_buffer(outputs, 0);
  std::memset(vorn_get_data_buffer_addr(buffer), byte, vorn_get_data_buffer_size(buffer));
}

// By a child that is asked to end behind the program's end.
void InterruptAtTheEnd() {
  const pid_t launch = getppid();
  sigset_t asked;
  sigset_t before;
  sigemptyset(&asked);
  sigaddset(&asked, SIGTERM);
  sigprocmask(SIG_BLOCK, &asked, &before);
  if (fork() == 0) {
    int number = 0;
    sigwait(&asked, &number);
    kill(launch, SIGINT);
    _exit(0);
  }
  sigprocmask(SIG_SETMASK, &before, nullptr);
}

void LeaveChild() {
  const pid_t child = fork();
  if (child == 0) {
    signal(SIGTERM, SIG_IGN);
    while (true) pause();
  }
  FILE* file = std::fopen("child", "w");
  std::fprintf(file, "%d", static_cast<int>(child));
  std::fclose(file);
}

void WaitAtGate() {
  const std::string gate = std::getenv("VORN_GATE");
  close(open((gate + ".waits").c_str(), O_CREAT | O_WRONLY, 0666));
  while (access(gate.c_str(), F_OK) != 0) usleep(5000);
}

}  // namespace

extern "C" __attribute__((visibility("default"))) vorn_status vorn_mdl_execute(
    uint32_t model, const vorn_mdl_dataset* inputs, vorn_mdl_dataset* outputs) {
  const vorn_data_buffer* buffer = vorn_mdl_get_dataset_buffer(inputs, 0);
  const char how = *static_cast<const char*>(vorn_get_data_buffer_addr(buffer));
  switch (how) {
    case 'S':
      raise(SIGSEGV);
      break;
    case 'H':
      while (true) pause();
    case 'F':
      return kFailed;
    case 'E':
      _exit(0);
    case 'K':
      InterruptAtTheEnd();
      break;
    case 'C':
      LeaveChild();
      break;
    case 'W':
      WaitAtGate();
      break;
    default:
      break;
  }
  const vorn_status status =
      Next<decltype(&vorn_mdl_execute)>("vorn_mdl_execute")(model, inputs, outputs);
  Fill(outputs, how == 'N' ? '\xFF' : how == 'R' ? g_before : how);
  if (how != 'R') g_before = how;
  return status;
}
