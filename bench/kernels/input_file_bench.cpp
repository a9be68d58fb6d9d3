// An input file into its block, against reading it whole into a block of its size.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "common/file.h"
#include "kernels/scratch_file.h"
#include "model/row_reader.h"

namespace {

struct Shape {
  uint64_t rows;
  uint64_t rowBytes;
  uint64_t stride;

  [[nodiscard]] uint64_t FileBytes() const { return rows * rowBytes; }
  [[nodiscard]] uint64_t BlockBytes() const { return rows * stride; }
};

// A block as the runtime hands it out, its pages there already.
std::span<std::byte> Block(std::unique_ptr<std::byte[]>& owner, uint64_t size) {
  owner = std::make_unique<std::byte[]>(size);
  return {owner.get(), size};
}

void Ours(benchmark::State& state, const Shape& shape) {
  const bench::ScratchFile scratch;
  scratch.Fill(shape.FileBytes());
  std::unique_ptr<std::byte[]> owner;
  const auto block = Block(owner, shape.BlockBytes());
  for (auto _ : state) {
    const FileDescriptor file = OpenForReading(scratch.Path());
    benchmark::DoNotOptimize(SeekEnd(file));
    ReadRows(file.Get(), block,
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
  std::unique_ptr<std::byte[]> owner;
  const auto block = Block(owner, shape.FileBytes());
  for (auto _ : state) {
    const int fd = open(scratch.Path().c_str(), O_RDONLY | O_CLOEXEC);
    benchmark::DoNotOptimize(read(fd, block.data(), block.size()));
    close(fd);
    benchmark::ClobberMemory();
  }
}

void Register(const std::string& row, const std::string& what, const Shape& shape) {
  const std::string name = row + "|" + what + "|";
  benchmark::RegisterBenchmark((name + "ours").c_str(), Ours, shape)
      ->Unit(benchmark::kMicrosecond);
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
