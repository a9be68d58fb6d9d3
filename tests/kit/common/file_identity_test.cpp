#include "kit/common/file_identity.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <iterator>

#include "kit/common/xxh3.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

class FileIdentityTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  std::string FaultOf(const std::function<void()>& action) const {
    try {
      action();
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      std::string message = fault.what();
      const size_t at = message.find(folder_.Path().string());
      if (at != std::string::npos) message.replace(at, folder_.Path().string().size(), "DIR");
      return message;
    }
    return "no fault";
  }

  std::string FaultOfPath(const std::string& path) const {
    std::string identified =
        FaultOf([&] { (void)IdentifyFile(path, "the list", ExitStatus::kInput); });
    const std::string read =
        FaultOf([&] { (void)ReadWholeFile(path, "the list", ExitStatus::kInput, 10); });
    EXPECT_EQ(identified, read);
    return identified;
  }

  support::TempDir folder_;
};

// The digits are those of `xxhsum -H2` of xxHash 0.8.1.
TEST_F(FileIdentityTest, HasSizeAndHash) {
  support::WriteFile(Path("empty"), "");
  support::WriteFile(Path("abc"), "abc");
  const FileIdentity empty = IdentifyFile(Path("empty"), "the list", ExitStatus::kInput);
  EXPECT_EQ(empty.sizeBytes, 0U);
  EXPECT_EQ(empty.xxh3, "99aa06d3014798d86001c324468d497f");
  const FileIdentity abc = IdentifyFile(Path("abc"), "the list", ExitStatus::kInput);
  EXPECT_EQ(abc.path, Path("abc"));
  EXPECT_EQ(abc.sizeBytes, 3U);
  EXPECT_EQ(abc.xxh3, "06b05ab6733a618578af5f94892f3950");
}

size_t OpenDescriptors() {
  const std::filesystem::directory_iterator descriptors("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

TEST_F(FileIdentityTest, LeavesNothingOpen) {
  support::WriteFile(Path("file"), "text");
  const size_t before = OpenDescriptors();
  for (const char* name : {"file", "no", "."}) {
    (void)FaultOf([&] { (void)IdentifyFile(Path(name), "the list", ExitStatus::kInput); });
    (void)FaultOf([&] { (void)ReadWholeFile(Path(name), "the list", ExitStatus::kInput, 2); });
  }
  EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(FileIdentityTest, ReadsOnBehindOnePiece) {
  const std::string bytes = support::CountingBytes(3 * 256 * 1024 + 1);
  support::WriteFile(Path("large"), bytes);
  EXPECT_EQ(ReadWholeFile(Path("large"), "the list", ExitStatus::kInput, bytes.size()), bytes);
  std::string changed = bytes;
  changed.back() = static_cast<char>(changed.back() + 1);
  support::WriteFile(Path("changed"), changed);
  const FileIdentity one = IdentifyFile(Path("large"), "the list", ExitStatus::kInput);
  const FileIdentity other = IdentifyFile(Path("changed"), "the list", ExitStatus::kInput);
  EXPECT_EQ(one.sizeBytes, bytes.size());
  EXPECT_NE(one.xxh3, other.xxh3);
}

TEST(Xxh3Stream, GivesTheHashOfTheWholeHoweverItIsCut) {
  for (const size_t size : {0, 1, 16, 17, 128, 240, 241, 1024, 4097, 100'000}) {
    const std::string bytes = support::CountingBytes(size);
    for (const size_t piece : {1, 63, 256, 5000}) {
      Xxh3Stream hash;
      for (size_t at = 0; at < size; at += piece) {
        hash.Add(std::string_view(bytes).substr(at, piece));
      }
      EXPECT_EQ(hash.Digits(), Xxh3Of(bytes)) << size << " by " << piece;
    }
  }
}

#ifdef VORN_HAS_XXH3_VECTORS
void ExpectTheSameHashes(const Xxh3Functions& functions) {
  const std::string bytes = support::CountingBytes(300'001);
  for (size_t size = 0; size <= bytes.size(); size = size * 3 / 2 + 1) {
    const Xxh3Hash anywhere = kXxh3Anywhere.hash(bytes.data(), size);
    const Xxh3Hash hash = functions.hash(bytes.data(), size);
    EXPECT_EQ(hash.high, anywhere.high) << size;
    EXPECT_EQ(hash.low, anywhere.low) << size;
    Xxh3State state;
    functions.start(state);
    functions.add(state, bytes.data(), size / 3);
    functions.add(state, bytes.data() + size / 3, size - size / 3);
    const Xxh3Hash inPieces = functions.hashUntilNow(state);
    EXPECT_EQ(inPieces.high, anywhere.high) << size;
    EXPECT_EQ(inPieces.low, anywhere.low) << size;
  }
}

TEST(Xxh3, GivesTheSameWithAvx2) {
  if (__builtin_cpu_supports("avx2") == 0) GTEST_SKIP() << "this processor has no AVX2";
  ExpectTheSameHashes(kXxh3WithAvx2);
}

TEST(Xxh3, GivesTheSameWithAvx512) {
  if (__builtin_cpu_supports("avx512f") == 0) GTEST_SKIP() << "this processor has no AVX-512";
  ExpectTheSameHashes(kXxh3WithAvx512);
}
#endif

TEST_F(FileIdentityTest, RefusesWhatIsNoFile) {
  EXPECT_EQ(FaultOfPath(Path("nothing")),
            "the list 'DIR/nothing' cannot be opened: No such file or directory");
  EXPECT_EQ(FaultOfPath(folder_.Path().string()),
            "the list 'DIR' is a folder, and a file is needed");
  EXPECT_EQ(FaultOfPath("/dev/zero"), "the list '/dev/zero' is no regular file");
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  EXPECT_EQ(FaultOfPath(Path("pipe")), "the list 'DIR/pipe' is no regular file");
}

TEST_F(FileIdentityTest, RefusesAFileThatIsTooLarge) {
  support::WriteFile(Path("eleven"), "elevenbytes");
  EXPECT_EQ(
      FaultOf([&] { (void)ReadWholeFile(Path("eleven"), "the list", ExitStatus::kInput, 10); }),
      "the list 'DIR/eleven' is larger than 10 bytes, which nothing of its kind is");
  EXPECT_EQ(ReadWholeFile(Path("eleven"), "the list", ExitStatus::kInput, 11), "elevenbytes");
}

}  // namespace
}  // namespace vorn::kit
