#include "kit/tensor/npz.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zip.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <numeric>

#include "kit/common/fault.h"
#include "kit/tensor/array.h"
#include "kit/tensor/tensor_reader.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

std::string SavedBy(const std::string& numpy) { return VORN_ARRAYS_FOLDER "/" + numpy; }

std::vector<float> Floats(const StoredTensor& tensor) {
  TensorReader reader(tensor, ElementOrder::Of(tensor));
  return ReadAll(reader, 1 << 20);
}

std::vector<float> CountingTo(size_t count) {
  std::vector<float> values(count);
  std::iota(values.begin(), values.end(), 0.0F);
  return values;
}

// An array of bytes as np.save writes it.
std::string Npy(uint64_t elements, const std::string& bytes) {
  const std::string text =
      "{'descr': '|u1', 'fortran_order': False, 'shape': (" + std::to_string(elements) + ",), }\n";
  return std::string("\x93NUMPY\x01\x00", 8) + static_cast<char>(text.size()) + '\0' + text + bytes;
}

// ---- Archives by hand, since no library writes those that lie -----------------------------------

struct Lie {
  std::string name;
  std::string bytes;     ///< as they lie in the archive
  uint32_t claimed = 0;  ///< unpacked
  uint16_t method = 0;   ///< stored
  uint16_t flags = 0;
  bool isSumWrong = false;
  bool isOverTheFirst = false;  ///< no bytes of its own: those of the first entry
};

Lie Honest(const std::string& name, const std::string& bytes) {
  return {name, bytes, static_cast<uint32_t>(bytes.size())};
}

uint32_t SumOf(const std::string& bytes) {
  uint32_t sum = UINT32_MAX;
  for (const char byte : bytes) {
    sum ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) sum = sum >> 1 ^ ((sum & 1U) != 0 ? 0xEDB88320U : 0U);
  }
  return ~sum;
}

std::string Little(uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 255U);
  return text;
}

std::string Zip(const std::vector<Lie>& entries) {
  std::string archive;
  std::string directory;
  for (const Lie& entry : entries) {
    const uint32_t sum = SumOf(entry.bytes) + (entry.isSumWrong ? 1 : 0);
    // From the flags to the length of what is further said.
    const std::string shared = Little(entry.flags, 2) + Little(entry.method, 2) + Little(0, 4) +
                               Little(sum, 4) + Little(entry.bytes.size(), 4) +
                               Little(entry.claimed, 4) + Little(entry.name.size(), 2) +
                               Little(0, 2);
    const size_t at = entry.isOverTheFirst ? 0 : archive.size();
    if (!entry.isOverTheFirst) {
      archive += "PK\x03\x04" + Little(20, 2) + shared + entry.name + entry.bytes;
    }
    directory += "PK\x01\x02" + Little(20, 2) + Little(20, 2) + shared + Little(0, 10) +
                 Little(at, 4) + entry.name;
  }
  const std::string end = "PK\x05\x06" + Little(0, 4) + Little(entries.size(), 2) +
                          Little(entries.size(), 2) + Little(directory.size(), 4) +
                          Little(archive.size(), 4) + Little(0, 2);
  return archive + directory + end;
}

size_t OpenDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

class Npz : public testing::Test {
 protected:
  std::string Write(const std::string& bytes) const {
    std::string path = folder_.Path() / "a.npz";
    support::WriteFile(path, bytes);
    return path;
  }

  // What is said of the archive, or of its first array.
  std::string Refusal(const std::string& bytes, uint64_t mostBytes = 1 << 20,
                      ExitStatus status = ExitStatus::kInput) const {
    try {
      const ArrayArchive archive(Write(bytes));
      const std::vector<std::string> names = archive.Names();
      (void)archive.Open(names.empty() ? "a" : names.front(), mostBytes);
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), status);
      return fault.what();
    }
    return "taken";
  }

  std::string Folder() const { return folder_.Path(); }

 private:
  support::TempDir folder_;
};

class SavedByNumpy : public testing::TestWithParam<const char*> {};

TEST_P(SavedByNumpy, IsReadInEveryTypeAndByteOrder) {
  const ArrayArchive archive(SavedBy(GetParam()));
  for (const char* kind :
       {"f2", "f4", "f8", "i1", "u1", "i2", "u2", "i4", "u4", "i8", "u8", "b1"}) {
    for (const char* order : {"", "big/"}) {
      const std::string front = order;
      SCOPED_TRACE(front + kind);
      const StoredTensor tensor = archive.Open(front + kind);
      EXPECT_EQ(tensor.shape, (Shape{2, 3}));
      const bool isBool = tensor.type == ElementType::kBool;
      EXPECT_EQ(Floats(tensor), isBool ? std::vector<float>({0, 1, 0, 1, 0, 1}) : CountingTo(6));
      EXPECT_EQ(tensor.isSwapped, !front.empty() && ElementBytes(tensor.type) > 1);
    }
  }
}

TEST_P(SavedByNumpy, IsReadInEveryShapeAndOrder) {
  const ArrayArchive archive(SavedBy(GetParam()));
  EXPECT_EQ(archive.Open("fortran").shape, (Shape{2, 3, 4}));
  EXPECT_EQ(Floats(archive.Open("fortran")), CountingTo(24));
  EXPECT_EQ(Floats(archive.Open("fortran/big")), CountingTo(12));
  EXPECT_EQ(archive.Open("scalar").shape, Shape{});
  EXPECT_THAT(Floats(archive.Open("scalar")), ElementsAre(7));
  EXPECT_EQ(archive.Open("empty").shape, (Shape{0, 3}));
  EXPECT_THAT(Floats(archive.Open("empty")), ElementsAre());
  EXPECT_EQ(archive.Open("empty/fortran").shape, (Shape{3, 0, 2}));
  EXPECT_THAT(Floats(archive.Open("empty/fortran")), ElementsAre());
  EXPECT_THAT(Floats(archive.Open("größe.0")), ElementsAre(0));
  EXPECT_EQ(archive.Names().size(), 30U);
}

TEST_P(SavedByNumpy, IsReadAsArraysInMemory) {
  const ArrayArchive archive(SavedBy(GetParam()));
  const Array whole = ReadArray(archive.Open("big/i8"), 1 << 20);
  std::vector<int64_t> values(6);
  std::memcpy(values.data(), whole.bytes.data(), whole.bytes.size());
  EXPECT_THAT(values, ElementsAre(0, 1, 2, 3, 4, 5));
  const Array item = ReadItem(archive.Open("fortran"), 1, 1 << 20);
  std::vector<int32_t> items(12);
  std::memcpy(items.data(), item.bytes.data(), item.bytes.size());
  EXPECT_THAT(items, ElementsAre(12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23));
  EXPECT_EQ(ReadItem(archive.Open("u1"), 1, 1 << 20).bytes,
            (std::vector<std::byte>{std::byte{3}, std::byte{4}, std::byte{5}}));
}

INSTANTIATE_TEST_SUITE_P(Npz, SavedByNumpy, testing::Values("saved.npz", "compressed.npz"),
                         [](const auto& saved) {
                           return std::string(saved.param).substr(0, strlen(saved.param) - 4);
                         });

TEST_F(Npz, ReadsEveryVersionAndSizesBehindTheValues) {
  const ArrayArchive archive(SavedBy("streamed.npz"));
  EXPECT_THAT(archive.Names(), ElementsAre("version 1", "version 2", "version 3"));
  for (const std::string& name : archive.Names()) {
    EXPECT_EQ(Floats(archive.Open(name)), CountingTo(6)) << name;
  }
}

TEST_F(Npz, OutlivesItsArchive) {
  StoredTensor tensor;
  {
    const ArrayArchive archive(Write(Zip({Honest("a.npy", Npy(2, "\x05\x06"))})));
    tensor = archive.Open("a");
  }
  Write("another file");
  EXPECT_THAT(Floats(tensor), ElementsAre(5, 6));
}

// Larger than what is kept in memory; deflated by libzip, which knows zip64 as well.
TEST_F(Npz, UnpacksALargeArrayIntoAFileWithoutAName) {
  constexpr uint64_t kElements = (80 << 20) + 17;
  std::string npy = Npy(kElements, std::string(kElements, '\0'));
  npy.replace(npy.size() - 3, 3, "xyz");
  const std::string path = Folder() + "/large.npz";
  zip_t* made = zip_open(path.c_str(), ZIP_CREATE, nullptr);
  ASSERT_NE(made, nullptr);
  zip_file_add(made, "big.npy", zip_source_buffer(made, npy.data(), npy.size(), 0), 0);
  zip_set_file_compression(made, 0, ZIP_CM_DEFLATE, 1);
  ASSERT_EQ(zip_close(made), 0);

  ASSERT_EQ(setenv("TMPDIR", Folder().c_str(), 1), 0);
  const size_t descriptors = OpenDescriptors();
  const StoredTensor tensor = ArrayArchive(path).Open("big");
  EXPECT_EQ(OpenDescriptors(), descriptors);
  EXPECT_EQ(support::ReadTree(Folder()).size(), 1U);
  EXPECT_EQ(tensor.elements, kElements);
  EXPECT_EQ(std::memcmp(tensor.unpacked.get(), npy.data() + npy.size() - kElements, kElements), 0);

  ASSERT_EQ(setenv("TMPDIR", "/proc", 1), 0);
  try {
    (void)ArrayArchive(path).Open("big");
    ADD_FAILURE() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kLimit);
    EXPECT_THAT(fault.what(), HasSubstr("cannot be unpacked into the folder '/proc'"));
  }
  ASSERT_EQ(unsetenv("TMPDIR"), 0);
}

TEST_F(Npz, SaysWhichArraysThereAre) {
  const ArrayArchive archive(
      Write(Zip({Honest("a.npy", Npy(0, "")), Honest("b/c.npy", Npy(0, ""))})));
  EXPECT_THAT(archive.Names(), ElementsAre("a", "b/c"));
  try {
    (void)archive.Open("c");
    ADD_FAILURE() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_THAT(fault.what(), HasSubstr("a.npz' has no array 'c'; there is 'a', 'b/c'"));
  }
}

TEST_F(Npz, RefusesWhatIsNoArchive) {
  EXPECT_THAT(Refusal("no archive"), HasSubstr("a.npz' is no archive of arrays (.npz): Not a zip"));
  EXPECT_THAT(Refusal(""), HasSubstr("is no archive of arrays"));
  EXPECT_THROW(ArrayArchive{Folder()}, Fault);
  EXPECT_THROW(ArrayArchive{Folder() + "/nothing.npz"}, Fault);
  EXPECT_THROW(ArrayArchive{"/dev/null"}, Fault);
  EXPECT_THAT(Refusal(Zip({Honest("a.txt", "text")})),
              HasSubstr("is an archive without arrays: nothing in it ends in .npy"));
}

TEST_F(Npz, NeverReadsObjects) {
  const ArrayArchive archive(SavedBy("objects.npz"));
  EXPECT_EQ(Floats(archive.Open("numbers")), CountingTo(6));
  try {
    (void)archive.Open("words");
    ADD_FAILURE() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_THAT(fault.what(), HasSubstr("objects.npz/words.npy' holds Python objects ('|O')"));
  }
}

TEST_F(Npz, RefusesEntriesThatAreNoArrays) {
  EXPECT_THAT(Refusal(Zip({Honest("a.npy", "text")})), HasSubstr("a.npz/a.npy' is no .npy file"));
  EXPECT_THAT(Refusal(Zip({Honest("a.npy", "")})), HasSubstr("is no .npy file"));
  EXPECT_THAT(Refusal(Zip({Honest("a.npy", Npy(3, "12"))})), HasSubstr("it was cut off"));
  EXPECT_THAT(Refusal(Zip({Honest("a.npy", Npy(1, "12"))})), HasSubstr("1 byte more"));
}

TEST_F(Npz, RefusesTwoArraysOfOneName) {
  EXPECT_THAT(
      Refusal(Zip({Honest("a.npy", Npy(0, "")), Honest("a.npy", Npy(1, "1"))})),
      HasSubstr("a.npz' holds two arrays of the name 'a', and which is meant nothing tells"));
}

TEST_F(Npz, RefusesWhatIsEncryptedOrPackedOtherwise) {
  Lie encrypted = Honest("a.npy", Npy(1, "1"));
  encrypted.flags = 1;
  EXPECT_THAT(Refusal(Zip({encrypted})), HasSubstr("a.npz/a.npy' is encrypted"));
  Lie packed = Honest("a.npy", Npy(1, "1"));
  packed.method = 14;
  EXPECT_THAT(Refusal(Zip({packed})), HasSubstr("is packed by method 14 of zip"));
}

TEST_F(Npz, RefusesClaimsThatTheArchiveDoesNotBear) {
  Lie packed = Honest("a.npy", Npy(1, "1"));
  packed.method = ZIP_CM_DEFLATE;
  packed.claimed = 0xF0000000;
  EXPECT_THAT(Refusal(Zip({packed})),
              AllOf(HasSubstr("claims to be 3.8 GiB of "), HasSubstr("made to fill memory")));
  Lie stored = Honest("a.npy", Npy(1, "1"));
  ++stored.claimed;
  EXPECT_THAT(Refusal(Zip({stored})), HasSubstr("claims to be"));
}

TEST_F(Npz, RefusesEntriesThatShareTheirBytes) {
  std::vector<Lie> entries{Honest("a.npy", Npy(2000, std::string(2000, 'x')))};
  for (int i = 0; i < 5; ++i) {
    entries.push_back(entries.front());
    entries.back().name = std::to_string(i) + ".npy";
    entries.back().isOverTheFirst = true;
  }
  EXPECT_THAT(Refusal(Zip(entries)), HasSubstr("has entries that are more than the archive"));
}

TEST_F(Npz, RefusesMoreThanIsTaken) {
  const std::string archive = Zip({Honest("a.npy", Npy(5000, std::string(5000, 'x')))});
  EXPECT_EQ(Refusal(archive, 6000), "taken");
  EXPECT_THAT(Refusal(archive, 1000, ExitStatus::kLimit),
              HasSubstr("a.npz/a.npy' has 5.0 KiB unpacked, more than the 1000 bytes"));
}

TEST_F(Npz, RefusesWhatWasChangedOrCutOff) {
  Lie wrong = Honest("a.npy", Npy(3, "123"));
  wrong.isSumWrong = true;
  EXPECT_THAT(Refusal(Zip({wrong})), HasSubstr("a.npy' cannot be unpacked: CRC error"));
  const std::string whole = support::ReadFile(SavedBy("compressed.npz"));
  for (size_t bytes = 0; bytes < whole.size(); bytes += 7) {
    EXPECT_THAT(Refusal(whole.substr(0, bytes)), HasSubstr("a.npz")) << bytes;
  }
}

// Whatever byte is changed: read as it was, or refused, since a sum stands behind the values.
TEST_F(Npz, NeverGivesOtherValuesThanWereSaved) {
  const std::string whole = Zip({Honest("a.npy", Npy(3, "\x01\x02\x03"))});
  for (size_t at = 0; at < whole.size(); ++at) {
    for (const int bit : {0, 3, 7}) {
      std::string changed = whole;
      changed[at] = static_cast<char>(changed[at] ^ 1 << bit);
      try {
        const ArrayArchive archive(Write(changed));
        for (const std::string& name : archive.Names()) {
          EXPECT_THAT(Floats(archive.Open(name, 1 << 20)), ElementsAre(1, 2, 3)) << at;
        }
      } catch (const Fault&) {
        continue;
      }
    }
  }
}

}  // namespace
}  // namespace vorn::kit
