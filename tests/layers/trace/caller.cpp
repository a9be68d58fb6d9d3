// Calls a runtime in ways that vorn-run does not. The word says which.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

#include "vorn/vorn.h"

namespace {

void CallFromThreads() {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([] {
      for (int round = 0; round < 500; ++round) vorn_data_type_size(VORN_FLOAT32);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// One call, one in a child, and one more.
void CallAroundAFork() {
  vorn_data_type_size(VORN_FLOAT32);
  const pid_t child = fork();
  if (child == 0) {
    vorn_data_type_size(VORN_INT8);
    vorn_data_type_size(VORN_INT8);
    _exit(0);
  }
  waitpid(child, nullptr, 0);
  vorn_data_type_size(VORN_FLOAT32);
}

// Everything that is open but the standard streams, as a daemon does, and another folder.
void CloseAllAndCall() {
  for (int fd = 3; fd < 1024; ++fd) close(fd);
  if (chdir("/") != 0) std::abort();
  vorn_data_type_size(VORN_FLOAT32);
}

// Calls until it is killed, and tells in a file of two words who it is and how many came back.
void CallAndCount(const char* path) {
  const int fd = open(path, O_RDWR);
  if (fd < 0) std::abort();
  void* shared = mmap(nullptr, 16, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (shared == MAP_FAILED) std::abort();
  auto* words = static_cast<uint64_t*>(shared);
  std::atomic_ref(words[0]).store(static_cast<uint64_t>(getpid()));
  while (true) {
    vorn_data_type_size(VORN_FLOAT32);
    std::atomic_ref(words[1]).fetch_add(1);
  }
}

void OpenByName(const char* path) {
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) std::abort();
  reinterpret_cast<decltype(&vorn_data_type_size)>(dlsym(library, "vorn_data_type_size"))(0);
}

}  // namespace

int main(int argc, char** argv) {
  const char* word = argc > 1 ? argv[1] : "";
  if (std::strcmp(word, "threads") == 0) CallFromThreads();
  if (std::strcmp(word, "fork") == 0) CallAroundAFork();
  if (std::strcmp(word, "close") == 0) CloseAllAndCall();
  if (std::strcmp(word, "count") == 0 && argc > 2) CallAndCount(argv[2]);
  if (std::strcmp(word, "open") == 0 && argc > 2) OpenByName(argv[2]);
  if (std::strcmp(word, "exit") == 0) {
    vorn_data_type_size(VORN_FLOAT32);
    _exit(7);
  }
  if (std::strcmp(word, "abort") == 0) {
    vorn_data_type_size(VORN_FLOAT32);
    std::abort();
  }
  if (std::strcmp(word, "again") == 0) {
    for (int round = 0; round < 2; ++round) {
      vorn_init("config");
      vorn_finalize();
    }
  }
  return 0;
}
