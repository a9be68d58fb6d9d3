// Where the files lie that a run tells of. It tells paths as its command was given them, from a
// folder that need not be the one where the report is made.
#ifndef VORN_KIT_REPORT_PLACES_H_
#define VORN_KIT_REPORT_PLACES_H_

#include <string>
#include <vector>

namespace vorn::kit {

class Places {
 public:
  /// `run`: where the directory lies now. `told`: how the run's own files call it, where they do;
  /// what stands in front of that is the folder that they were told from.
  Places(const std::string& run, const std::vector<std::string>& told);

  /// The path as it can be opened from here: as it was told from the run's own folder on, or from
  /// here; as it is where nothing is there.
  [[nodiscard]] std::string Find(const std::string& path) const;

  /// The folder that they were told from, with a slash behind it; empty where it is not known.
  [[nodiscard]] const std::string& Folder() const { return folder_; }

 private:
  std::string folder_;  // empty: not known
};

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_PLACES_H_
