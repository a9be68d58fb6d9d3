#include "model/row_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <random>
#include <vector>

#include "common/file.h"

namespace vorn::run {
namespace {

int calls = 0;                     // of preadv
std::optional<ssize_t> mostBytes;  // that one moves, where it is limited; below 0 it is interrupted

}  // namespace

// The program is linked with --wrap for it: a file on a disk is neither cut short below 2 GiB nor
// interrupted at a moment that a test could choose.
ssize_t RealPreadv(int fd, const iovec* places, int count, off_t offset) asm("__real_preadv");
ssize_t LimitedPreadv(int fd, const iovec* places, int count, off_t offset) asm("__wrap_preadv");

ssize_t LimitedPreadv(int fd, const iovec* places, int count, off_t offset) {
  ++calls;
  if (!mostBytes) return RealPreadv(fd, places, count, offset);
  if (*mostBytes < 0) {
    errno = EINTR;
    return -1;
  }
  auto left = static_cast<size_t>(*mostBytes);
  std::vector<iovec> limited(places, places + count);
  for (iovec& place : limited) {
    place.iov_len = std::min(place.iov_len, left);
    left -= place.iov_len;
  }
  return RealPreadv(fd, limited.data(), count, offset);
}

namespace {

using Bytes = std::vector<std::byte>;

constexpr auto kUntouched = std::byte{0xA5};

Bytes Counting(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::byte>(i * 7 + 1);
  return bytes;
}

FileDescriptor FileOf(const Bytes& content) {
  std::string name = testing::TempDir() + "row_reader_test.XXXXXX";
  FileDescriptor file(mkstemp(name.data()));
  unlink(name.c_str());
  WriteFully(file.Get(), content.data(), content.size());
  return file;
}

// What lies behind the block must stay as it is.
Bytes Read(const Bytes& content, size_t blockSize, const RowLayout& layout) {
  const Bytes behind(content.size(), kUntouched);
  Bytes memory(blockSize + behind.size(), kUntouched);
  const FileDescriptor file = FileOf(content);
  ReadRows(file.Get(), std::span(memory).first(blockSize), layout);
  const auto end = memory.begin() + static_cast<ptrdiff_t>(blockSize);
  EXPECT_TRUE(std::equal(end, memory.end(), behind.begin())) << "written behind the block";
  memory.resize(blockSize);
  return memory;
}

// Byte by byte, in file order: byte i of row r of batch b goes to b * batchBytes + r * stride + i.
Bytes SlowReference(const Bytes& content, size_t blockSize, const RowLayout& layout) {
  Bytes block(blockSize, kUntouched);
  size_t next = 0;
  for (uint64_t b = 0; b < layout.batches; ++b) {
    for (uint64_t r = 0; r < layout.rows; ++r) {
      for (uint64_t i = 0; i < layout.rowBytes; ++i, ++next) {
        if (next >= content.size()) return block;
        const uint64_t at = b * layout.batchBytes + r * layout.stride + i;
        if (at < blockSize) block[at] = content[next];
      }
    }
  }
  return block;
}

void ExpectAsReference(size_t fileSize, size_t blockSize, const RowLayout& layout) {
  const Bytes content = Counting(fileSize);
  ASSERT_EQ(Read(content, blockSize, layout), SlowReference(content, blockSize, layout))
      << "file " << fileSize << " block " << blockSize << " batches " << layout.batches
      << " batchBytes " << layout.batchBytes << " rows " << layout.rows << " stride "
      << layout.stride << " rowBytes " << layout.rowBytes;
}

TEST(ReadRows, StartsEveryRowAtAMultipleOfTheStride) {
  const Bytes content = Counting(60);
  const Bytes block = Read(content, 384, {1, 384, 12, 32, 5});
  for (size_t row = 0; row < 12; ++row) {
    for (size_t i = 0; i < 32; ++i) {
      EXPECT_EQ(block[row * 32 + i], i < 5 ? content[row * 5 + i] : kUntouched);
    }
  }
}

TEST(ReadRows, LeavesTheRestOfAShortFileUnwritten) {
  const Bytes block = Read(Counting(7), 32, {1, 32, 4, 8, 5});
  EXPECT_EQ(std::count(block.begin(), block.end(), kUntouched), 32 - 7);
  EXPECT_NE(block[8], kUntouched);
  EXPECT_NE(block[9], kUntouched);
  EXPECT_EQ(block[10], kUntouched);
}

TEST(ReadRows, ReadsDenseRowsAtOnceBatchAfterBatch) {
  ExpectAsReference(64, 64, {2, 32, 4, 8, 8});
  ExpectAsReference(60, 72, {2, 36, 4, 8, 8});  // four bytes between the batch items
}

TEST(ReadRows, TakesTheLongestRowThatAFileCanHave) {
  ExpectAsReference(16, 16, {1, 16, 4, 4, ~uint64_t{0} >> 1});
}

// 2^63 bytes and more: their number does not fit where they are counted.
TEST(ReadRows, TakesMoreBatchItemsThanAnyMemoryHolds) {
  constexpr uint64_t kTerabyte = uint64_t{1} << 40;
  for (const uint64_t batches : {1 << 23, 1 << 24, 1 << 25}) {
    ExpectAsReference(100, 64, {batches, kTerabyte, 1, kTerabyte, kTerabyte});
    ExpectAsReference(100, 64, {batches, kTerabyte, 1 << 20, 1 << 20, 1 << 20});
    ExpectAsReference(100, 64, {batches, kTerabyte, 1 << 20, 1 << 20, 12});
  }
}

TEST(ReadRows, LeavesWhatIsBehindTheLastBatchItem) {
  ExpectAsReference(200, 160, {2, 32, 4, 8, 8});
  ExpectAsReference(200, 160, {2, 32, 4, 8, 6});
  ExpectAsReference(200, 160, {2, 36, 4, 8, 8});
}

TEST(ReadRows, WritesNothingOutsideTheBlock) {
  ExpectAsReference(100, 20, {1, 20, 2, 8, 30});  // rows longer than their stride
  ExpectAsReference(100, 17, {3, 8, 2, 4, 3});    // more batch items than the block holds
  ExpectAsReference(100, 17, {3, 8, 2, 4, 4});
  for (const size_t blockSize : {7, 8, 9, 11, 12, 13}) {
    ExpectAsReference(100, blockSize, {1, 20, 5, 4, 3});  // a row would start at or behind the end
    ExpectAsReference(100, blockSize, {1, 20, 5, 4, 5});
  }
}

TEST(ReadRows, ReadsNothingWithoutRowsOrBytes) {
  const Bytes untouched(16, kUntouched);
  EXPECT_EQ(Read(Counting(16), 16, {1, 16, 0, 4, 4}), untouched);
  EXPECT_EQ(Read(Counting(16), 16, {1, 16, 4, 4, 0}), untouched);
  EXPECT_EQ(Read(Counting(16), 16, {0, 16, 4, 4, 4}), untouched);
  EXPECT_EQ(Read(Counting(16), 16, {1, 16, 4, 4, ~uint64_t{0} - 3}), untouched);
}

TEST(ReadRows, ReadsShortRowsAcrossTheEndsOfItsPieces) {
  ExpectAsReference(700000, 1000000, {1, 1000000, 1000, 1000, 700});
  ExpectAsReference(699300, 1000000, {1, 1000000, 1000, 1000, 700});  // a row less
  ExpectAsReference(699301, 1000000, {1, 1000000, 1000, 1000, 700});
  ExpectAsReference(262144, 300000, {1, 300000, 341, 769, 767});  // the longest short row
}

TEST(ReadRows, ReadsLongRowsInPlace) {
  ExpectAsReference(800000, 1000000, {2, 500000, 2, 250000, 200000});
  ExpectAsReference(1, 1000000, {2, 500000, 2, 250000, 200000});
  ExpectAsReference(262144, 300000, {1, 300000, 341, 769, 768});  // the shortest long row
  // More rows than one call takes, the file ending behind, within and before the last ones.
  for (const size_t missing : {0, 1, 1029, 1030, 1031, 2060, 500000}) {
    ExpectAsReference(2500 * 1030 - missing, 2500 * 1040, {5, 500 * 1040, 500, 1040, 1030});
    ExpectAsReference(2500 * 1030 - missing, 2500 * 1048, {5, 500 * 1040 + 8, 500, 1040, 1030});
  }
}

TEST(ReadRows, ReadsAThousandAndTwentyFourLongRowsWithOneCall) {
  for (const auto& [rows, expected] :
       {std::pair<size_t, int>{1, 1}, {1024, 1}, {1025, 2}, {2048, 2}, {2049, 3}}) {
    calls = 0;
    ExpectAsReference(rows * 768, rows * 769, {1, rows * 769, rows, 769, 768});
    EXPECT_EQ(calls, expected) << rows;
  }
  calls = 0;
  ExpectAsReference(4 * 767, 4 * 769, {1, 4 * 769, 4, 769, 767});  // none for short rows
  EXPECT_EQ(calls, 0);
}

TEST(ReadRows, GoesOnWhereOneCallIsInterruptedOrFallsShort) {
  for (const ssize_t most : {-1, 0, 1, 767, 768, 769, 1500, 1536, 5000}) {
    mostBytes = most;
    ExpectAsReference(20 * 768, 20 * 769, {1, 20 * 769, 20, 769, 768});
    ExpectAsReference(20 * 768, 20 * 769, {2, 10 * 769, 10, 769, 768});
    ExpectAsReference(9 * 768 + 5, 20 * 769,
                      {1, 20 * 769, 20, 769, 768});  // the file is short, too
    mostBytes.reset();
  }
}

TEST(ReadRows, ReadsNoMoreRowsThanThereAre) {
  ExpectAsReference(2600 * 1030, 2500 * 1040, {5, 500 * 1040, 500, 1040, 1030});
  ExpectAsReference(2600 * 1030, 2600 * 1040, {5, 500 * 1040, 500, 1040, 1030});
  ExpectAsReference(2600 * 1000, 2600 * 1020, {5, 500 * 1020, 500, 1020, 1000});
}

TEST(ReadRows, CutsLongRowsAtTheEndOfTheBlock) {
  for (const size_t blockSize : {1, 1199, 1200, 1201, 1299, 1300, 1301, 3899, 3900}) {
    ExpectAsReference(3600, blockSize, {1, 3900, 3, 1300, 1200});
    ExpectAsReference(3600, blockSize, {1, 3900, 3, 1100, 1200});
  }
}

TEST(ReadRows, AgreesWithTheSlowWayForRandomLayouts) {
  constexpr uint32_t kSeed = 11;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  for (int round = 0; round < 1500; ++round) {
    const uint64_t stride = 1 + random() % 40;
    const uint64_t rows = random() % 12;
    ExpectAsReference(random() % 900, 1 + random() % 900,
                      {random() % 4, rows * stride + random() % 3, rows, stride, random() % 60});
  }
}

}  // namespace
}  // namespace vorn::run
