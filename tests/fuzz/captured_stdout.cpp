#include "fuzz/captured_stdout.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace fuzz {
namespace {

constexpr int kStdout = 1;

}  // namespace

CapturedStdout::CapturedStdout() {
  std::fflush(stdout);
  original_ = dup(kStdout);
  const int memory = memfd_create("stdout", MFD_CLOEXEC);
  if (original_ < 0 || memory < 0 || dup2(memory, kStdout) < 0) std::abort();
  close(memory);
}

CapturedStdout::~CapturedStdout() {
  std::fflush(stdout);
  dup2(original_, kStdout);
  close(original_);
}

std::string TakeStdout() {
  const off_t size = lseek(kStdout, 0, SEEK_CUR);
  if (size < 0) std::abort();
  std::string text(static_cast<size_t>(size), '\0');
  if (pread(kStdout, text.data(), text.size(), 0) != size) std::abort();
  // Rewound, not truncated: giving the pages back and asking for them again costs more than the
  // target does.
  lseek(kStdout, 0, SEEK_SET);
  return text;
}

}  // namespace fuzz
