// Files for the benchmarks, in the folder that the variable TMPDIR names (/tmp without).
#ifndef VORN_BENCH_KERNELS_SCRATCH_FILE_H_
#define VORN_BENCH_KERNELS_SCRATCH_FILE_H_

#include <cstddef>
#include <string>

namespace bench {

/// A name of this process's own; the file, if there is one, goes with this.
class ScratchFile {
 public:
  ScratchFile();
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  [[nodiscard]] const std::string& Path() const { return path_; }

  /// Makes the file anew with this many bytes, no two pages of them alike.
  void Fill(size_t size) const;

  void Remove() const;

 private:
  std::string path_;
};

/// Writes a whole file, whatever it takes. Ends the process where the disk does not.
void WriteAll(int fd, const char* data, size_t size);

}  // namespace bench

#endif  // VORN_BENCH_KERNELS_SCRATCH_FILE_H_
