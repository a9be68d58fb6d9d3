// An input file into its block, against reading it whole into a block of its size.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <span>
#include <string>

#include "common/file.h"
#include "kernels/scratch_file.h"
#include "model/row_reader.h"

namespace vorn::run {
namespace {

struct Shape {
  uint64_t rows;
  uint64_t rowBytes;
  uint64_t stride;

  [[nodiscard]] uint64_t FileBytes() const { return rows * rowBytes; }
  [[nodiscard]] uint64_t BlockBytes() const { return rows * stride; }
};

// A block as the runtime hands it out, on a page of its own, its pages there already.
class Block {
 public:
  explicit Block(uint64_t size)
      : block_(static_cast<std::byte*>(operator new(size, kPage))), bytes_(size) {
    std::fill_n(block_, bytes_, std::byte{1});
  }
  ~Block() { operator delete(block_, kPage); }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  [[nodiscard]] std::span<std::byte> Bytes() const { return {block_, bytes_}; }

 private:
  static constexpr std::align_val_t kPage{4096};
  std::byte* block_;
  uint64_t bytes_;
};

void Ours(benchmark::State& state, const Shape& shape) {
  const bench::ScratchFile scratch;
  scratch.Fill(shape.FileBytes());
  const Block block(shape.BlockBytes());
  for (auto _ : state) {
    const FileDescriptor file = OpenForReading(scratch.Path());
    benchmark::DoNotOptimize(SeekEnd(file));
    ReadRows(file.Get(), block.Bytes(),
             {.batches = 1,
              .batchBytes = shape.BlockBytes(),
              .rows = shape.rows,
              .stride = shape.stride,
              .rowBytes = shape.rowBytes});
    benchmark::ClobberMemory();
  }
}

void Floor(benchmark::State& state, const Shape& shape) {
  const bench::ScratchFile scratch;
  scratch.Fill(shape.FileBytes());
  const Block block(shape.FileBytes());
  for (auto _ : state) {
    const int fd = open(scratch.Path().c_str(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(read(fd, block.Bytes().data(), block.Bytes().size()));
    close(fd);
    benchmark::ClobberMemory();
  }
}

void Register(const std::string& row, const std::string& what, const Shape& shape) {
  const std::string name = row + "|" + what + "|";
  benchmark::RegisterBenchmark((name + "ours").c_str(), Ours, shape)->Unit(benchmark::kMicrosecond);
  benchmark::RegisterBenchmark((name + "floor").c_str(), Floor, shape)
      ->Unit(benchmark::kMicrosecond);
}

const bool kRegistered = [] {
  Register("input-dense", "3x224x224 float32", {672, 896, 896});
  Register("input-dense", "3x1080x1920 uint8", {3240, 1920, 1920});
  Register("input-padded", "900 to 912", {675, 900, 912});       // 3x225x225 float32
  Register("input-padded", "1920 to 2048", {3240, 1920, 2048});  // 3x1080x1920 uint8
  Register("input-padded", "12 to 16", {100000, 12, 16});        // 100,000 points, float32
  return true;
}();

}  // namespace
}  // namespace vorn::run
