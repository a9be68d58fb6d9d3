// One fuzzer: the target that the build names, under libFuzzer.
#include <cstdio>
#include <cstdlib>

#include "fuzz/captured_stdout.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const fuzz::CapturedStdout captured;
  try {
    fuzz::VORN_FUZZ_TARGET({data, size});
  } catch (const fuzz::Violation& violation) {
    std::fprintf(stderr, "violation: %s\n", violation.text.c_str());
    std::abort();
  }
  fuzz::TakeStdout();
  return 0;
}
