// Archives of arrays (.npz): zip archives with a .npy file an array, packed or as it is.
//
// A packed array cannot be read at any place, so it is unpacked as a whole: into memory, or into a
// temporary file without a name where it is large. What an entry claims is held against the archive
// before any room is taken.
#ifndef VORN_KIT_TENSOR_NPZ_H_
#define VORN_KIT_TENSOR_NPZ_H_

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kit/tensor/stored_tensor.h"

struct zip;

namespace vorn::kit {

/// An archive, open. Every fault is a Fault of kInput that names it, unless something else is said.
class ArrayArchive {
 public:
  static constexpr uint64_t kMostUnpackedBytes = uint64_t{16} << 30;

  /// Reads what is in it. Refuses what is no zip archive, two arrays of one name, and entries that
  /// share bytes, as those of bombs do.
  explicit ArrayArchive(std::string path);

  /// Of the arrays, in the order of the archive. An array's name is its entry's without ".npy", and
  /// may hold anything, also slashes; entries of other names are no arrays.
  [[nodiscard]] std::vector<std::string> Names() const;

  /// The array of that name, whose values lie in StoredTensor::unpacked and live as long as it and
  /// its copies. Its path is the archive's with the entry's behind it. Refuses an array that is
  /// encrypted, packed in another way than `deflate`, broken, or no .npy file of numbers; never are
  /// objects read. Throws a Fault of kLimit where it is larger than `mostBytes`, or where there is
  /// no room for it.
  [[nodiscard]] StoredTensor Open(const std::string& name,
                                  uint64_t mostBytes = kMostUnpackedBytes) const;

 private:
  struct Closer {
    void operator()(zip* archive) const;
  };
  struct Entry {
    std::string name;  ///< the array's
    uint64_t place = 0;
    uint64_t packedBytes = 0;
    uint64_t bytes = 0;
    bool isPacked = false;
    std::string obstacle;  ///< why it cannot be read
  };

  [[noreturn]] void Refuse(const std::string& reason) const;
  [[nodiscard]] Entry Describe(uint64_t place) const;
  [[nodiscard]] const Entry& Find(const std::string& name) const;

  std::string path_;
  std::unique_ptr<zip, Closer> archive_;
  std::vector<Entry> entries_;
};

/// What is said of an archive without arrays, behind its name.
inline constexpr const char* kNoArrays = "is an archive without arrays: nothing in it ends in .npy";

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_NPZ_H_
