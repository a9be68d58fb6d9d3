// The run directory as the one launch has it that writes there.
#ifndef VORN_KIT_LAUNCH_RUN_FOLDER_H_
#define VORN_KIT_LAUNCH_RUN_FOLDER_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kit/common/owned_file.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

/// Owns the folder: no other launch can have it meanwhile.
class RunFolder {
 public:
  /// Makes the folder and those above it. Throws a Fault of kUsage if there is a run in it already
  /// that is not gone on with, another launch or the program of one has it, or something else lies
  /// where a file of the run has to be, of kLimit if it cannot be made.
  RunFolder(const std::string& path, bool isResumed);

  [[nodiscard]] std::string Path(const std::string& name) const { return path_ + "/" + name; }

  /// The record of the run that is gone on with; empty for a new one.
  [[nodiscard]] const std::optional<RunFacts>& Before() const { return before_; }

 private:
  void Take(bool isResumed);
  void CheckPlaces() const;
  void WaitForProgram() const;
  [[noreturn]] void Refuse(const std::string& what) const;

  std::string path_;
  OwnedFile lock_;
  std::optional<RunFacts> before_;
};

/// Makes a folder and those above it. Throws a Fault of kLimit.
void MakeFolders(const std::string& path);

/// Removes a file, or a folder with all that is in it; neither is a fault where there is none.
/// Throws a Fault of kLimit.
void RemoveTree(const std::string& path);

/// Moves a folder to a place where something may be already, which goes. Throws a Fault of kLimit.
void MoveFolder(const std::string& from, const std::string& to);

/// The same; false where there is none, and all stays as it is.
[[nodiscard]] bool MoveFolderIfThere(const std::string& from, const std::string& to);

/// Whether hardly any room is left on the disk of a folder: a write there has failed for want of
/// it, or would.
[[nodiscard]] bool IsDiskFull(const std::string& folder);

/// A path without symbolic links, from the root on; empty if there is nothing.
[[nodiscard]] std::string RealPath(const std::string& path);

/// Bytes of a file; 0 if there is none.
[[nodiscard]] uint64_t SizeOfFile(const std::string& path);

/// Bytes of a file from `offset` on, `most` at most; empty where there are none.
[[nodiscard]] std::string ReadFrom(const std::string& path, uint64_t offset, size_t most);

/// Puts the lines of samples.jsonl in the order of their indices, each index once, the last line of
/// it; `missing` makes the record of an index below `count` that has none. Shows each record on the
/// way.
void SortSamples(const std::string& path, uint64_t count,
                 const std::function<SampleRecord(uint64_t index)>& missing,
                 const std::function<void(const SampleRecord&)>& show);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_RUN_FOLDER_H_
