// switch.h: which mutant a program is. Every changed source begins with this file, see switched.py.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace mutation {

/// The number of the mutant; 0 is the unchanged program.
inline long long Chosen() noexcept {
  const char* const number = std::getenv("VORN_MUTANT");
  return number == nullptr ? 0 : std::atoll(number);
}

/// A byte for each place of the sources, shared by all processes that run for a test; null where
/// nobody asks. VORN_REACHED names the file, which is as long as there are places.
inline unsigned char* SharedPlaces() noexcept {
  const char* const path = std::getenv("VORN_REACHED");
  if (path == nullptr) return nullptr;
  const int fd = open(path, O_RDWR | O_CLOEXEC);
  if (fd < 0) return nullptr;
  const auto bytes = static_cast<size_t>(lseek(fd, 0, SEEK_END));
  void* const shared = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  close(fd);
  return shared == MAP_FAILED ? nullptr : static_cast<unsigned char*>(shared);
}

inline const long long chosen = Chosen();
inline unsigned char* const places = SharedPlaces();

inline void Reach(int place) noexcept {
  if (places != nullptr) places[place] = 1;
}

}  // namespace mutation
