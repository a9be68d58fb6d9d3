// The model file into runtime memory, against reading it into a fresh block.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

#include "common/runtime_memory.h"
#include "kernels/scratch_file.h"
#include "model/model_file.h"

namespace vorn::run {
namespace {

// Where the runtime's blocks start: the system copies faster to there.
constexpr size_t kPageBytes = 4096;
constexpr size_t kImageBytes = size_t{200} << 20;

const bench::ScratchFile& Image() {
  static const bench::ScratchFile image;
  static const bool isFilled = (image.Fill(kImageBytes), true);
  benchmark::DoNotOptimize(isFilled);
  return image;
}

void Ours(benchmark::State& state) {
  const std::string path = Image().Path();
  for (auto _ : state) {
    uint32_t size = 0;
    void* block = ReadBinFile(path, size);
    if (size != kImageBytes) state.SkipWithError("the image was not read");
    vorn_rt_free(block);
  }
}

void Floor(benchmark::State& state) {
  const std::string path = Image().Path();
  for (auto _ : state) {
    void* block = std::aligned_alloc(kPageBytes, kImageBytes);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (read(fd, block, kImageBytes) != ssize_t{kImageBytes}) state.SkipWithError("not read");
    close(fd);
    std::free(block);
  }
}

const bool kRegistered = [] {
  benchmark::RegisterBenchmark("model-file||ours", Ours)->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("model-file||floor", Floor)->Unit(benchmark::kMillisecond);
  return true;
}();

}  // namespace
}  // namespace vorn::run
