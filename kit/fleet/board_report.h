// What is told of the boards of a fleet: RUN/boards.json of a merge, and how fast each is.
#ifndef VORN_KIT_FLEET_BOARD_REPORT_H_
#define VORN_KIT_FLEET_BOARD_REPORT_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "kit/fleet/fleet_state.h"
#include "kit/fleet/journal.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

inline constexpr const char* kBoardReportFile = "boards.json";
inline constexpr const char* kBoardReportFolder = "boards";

/// When boards were at chunks. A board with two slots is so once, however many of them are.
class BoardTimes {
 public:
  /// Records of one writer have to come in their order.
  void Take(const JournalRecord& record);

  /// Inferences a second while the board was at a chunk that is done, or was in part; empty where
  /// none is.
  [[nodiscard]] std::optional<double> SamplesPerSecond(const std::string& board) const;

 private:
  struct Span {
    uint64_t beginNs = 0;
    uint64_t endNs = 0;
  };
  struct Board {
    std::vector<Span> spans;
    uint64_t samples = 0;
  };
  using Attempt = std::tuple<std::string, uint64_t, uint64_t>;  // board, chunk, number

  std::map<Attempt, uint64_t> begun_;  // that have no end yet
  std::map<std::string, Board> boards_;
};

struct MergedBoard {
  std::string name;
  std::string folder;  ///< in RUN: what is kept of this board apart
  BoardState state;
  uint64_t samples = 0;  ///< that were taken from it
  uint64_t inDoubt = 0;  ///< of these, where its outputs are not those of the other boards
  std::optional<double> samplesPerSecond;
  std::optional<int64_t> highestTemperatureMilliC;
  std::optional<uint64_t> lowestFrequencyKhz;
  std::optional<FileIdentity> runtime;  ///< of its first attempt
  bool isChecked = false;               ///< it has run the inferences that all boards run
  std::vector<uint64_t> disagreesAt;    ///< which of these it has with other outputs
};

/// An inference that was done several times, and not always with the same outputs.
struct UnequalSample {
  struct Attempt {
    std::string board;
    uint64_t attempt = 0;
    std::string outputs;        ///< OutputsHash
    bool isCrossCheck = false;  ///< at the cross-check of the board, not at a chunk

    bool operator==(const Attempt&) const = default;
  };
  uint64_t index = 0;
  uint64_t line = 0;  ///< of the list; 0: it has no inputs
  std::vector<Attempt> attempts;
};

/// An attempt of which nothing counts, or not all that it says.
struct UnfitAttempt {
  uint64_t chunk = 0;
  uint64_t attempt = 0;
  std::string board;
  std::string reason;
};

struct BoardReport {
  std::string fleet;  ///< id of the plan
  std::vector<MergedBoard> boards;
  std::vector<uint64_t> crossCheck;    ///< inferences that all boards run
  uint64_t notDeterministic = 0;       ///< inferences
  std::vector<UnequalSample> unequal;  ///< the first of these
  uint64_t unfitAttempts = 0;
  std::vector<UnfitAttempt> unfit;  ///< the first of these
};

/// The whole file, with a line end.
[[nodiscard]] std::string ToJson(const BoardReport& facts);

/// A name for the folder of a board, whatever the board is called: no two have the same.
[[nodiscard]] std::string FolderNameOf(const std::string& board);

/// The one in the middle, of an even number the mean of two; empty of none.
[[nodiscard]] std::optional<double> MedianOf(std::vector<double> values);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_BOARD_REPORT_H_
