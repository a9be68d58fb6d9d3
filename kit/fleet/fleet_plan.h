// What a fleet is to do: one list, cut into chunks, and what has to lie on a board for them.
//
//     FLEET/plan.json      FleetPlan, written once
//     FLEET/model.json     the description of the model
//     FLEET/inputs.jsonl   a line an inference: a SampleRecord that was not run, as the one of a
//                          run in one piece begins
//     FLEET/paths.txt      a line an input of an inference, in their order: the file, from the root
//                          on, byte for byte, which JSON cannot hold of every name
//     FLEET/journal/       what happened                             kit/fleet/journal.h
//     FLEET/sockets        where the sockets of a run lie, while it runs
//     FLEET/chunks/C/A/    the run directory of attempt A at chunk C, whole
//     FLEET/cross/B/A/     the same of the cross-check on board B
#ifndef VORN_KIT_FLEET_FLEET_PLAN_H_
#define VORN_KIT_FLEET_FLEET_PLAN_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/file_identity.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

inline constexpr const char* kPlanFile = "plan.json";
inline constexpr const char* kInputsFile = "inputs.jsonl";
inline constexpr const char* kPathsFile = "paths.txt";
inline constexpr const char* kJournalFolder = "journal";
inline constexpr const char* kFleetChunksFolder = "chunks";
inline constexpr const char* kCrossFolder = "cross";

/// Inferences that follow each other in the list.
struct FleetChunk {
  uint64_t first = 0;       ///< inference
  uint64_t inferences = 0;  ///< 1 or more
  uint64_t inputsAt = 0;    ///< byte of inputs.jsonl at which the first one stands
  uint64_t pathsAt = 0;     ///< the same of paths.txt

  bool operator==(const FleetChunk&) const = default;
};

/// How each process of vorn-run is called, and what is kept of its outputs.
struct FleetOptions {
  std::optional<int64_t> batch;
  std::optional<int64_t> totalT;
  bool isProfiled = false;
  bool isTextKept = true;
  bool areArrays = false;
  bool isTraced = true;
  std::optional<uint64_t> sampleLimitS;

  bool operator==(const FleetOptions&) const = default;
};

/// What was measured before, to tell how long a chunk has to be.
struct FleetCost {
  uint64_t startNs = 0;   ///< of a process, from its start to its first inference, and its end
  uint64_t sampleNs = 0;  ///< of an inference, files and dumps included

  bool operator==(const FleetCost&) const = default;
};

struct FleetPlan {
  std::string id;                    ///< of all below: 32 hexadecimal digits
  std::string version;               ///< of the kit
  std::vector<std::string> command;  ///< that made the plan
  std::string from;                  ///< the folder from which paths here count
  FileIdentity model;
  FileIdentity configuration;
  std::vector<FileIdentity> configurationFiles;  ///< that the configuration names
  std::vector<FileIdentity> thresholds;          ///< in the order of -r
  FileIdentity list;
  std::optional<FileIdentity> runtime;  ///< that the plan was checked with
  std::optional<FileIdentity> program;  ///< the same
  std::vector<FileIdentity> ownFiles;   ///< inputs.jsonl and model.json, by their names in FLEET
  FleetOptions options;
  uint64_t inferences = 0;
  uint64_t perInference = 0;  ///< lines of the list
  uint64_t outputs = 0;       ///< of the model
  bool areNamesKept = false;  ///< the names of inputs stand in the chunks' lists, too
  std::optional<FleetCost> cost;
  std::vector<uint64_t> crossCheck;  ///< inferences that every board runs, ascending
  std::vector<FleetChunk> chunks;

  bool operator==(const FleetPlan&) const = default;
};

/// The whole file, with a line end.
[[nodiscard]] std::string ToJson(const FleetPlan& plan);

/// The id that a plan has to have: of all of it but the id.
[[nodiscard]] std::string IdOf(FleetPlan plan);

/// FLEET/plan.json. Throws a Fault of kInput that names the file: what is no plan, of another
/// schema, changed since it was written, or with chunks that are not the list.
[[nodiscard]] FleetPlan ReadFleetPlan(const std::string& fleet);

/// Throws a Fault of kInput where one of the plan's own files is not what it was made with.
void HoldToOwnFiles(const std::string& fleet, const FleetPlan& plan);

/// Inferences of inputs.jsonl from one byte on, `count` of them, in their order. Throws a Fault of
/// kInput.
void ForEachInput(const std::string& fleet, uint64_t inputsAt, uint64_t count,
                  const std::function<void(SampleRecord record)>& take);

/// The files of a chunk's inputs: `perInference` each inference. Throws as above.
[[nodiscard]] std::vector<std::string> ReadPaths(const std::string& fleet, uint64_t pathsAt,
                                                 uint64_t count);

/// Which chunk has an inference.
[[nodiscard]] uint64_t ChunkOf(const FleetPlan& plan, uint64_t inference);

/// FLEET/chunks/C, and FLEET/cross/BOARD, in which attempts lie by their numbers.
[[nodiscard]] std::string ChunkFolder(const std::string& fleet, uint64_t chunk);
[[nodiscard]] std::string CrossFolder(const std::string& fleet, const std::string& board);

/// The attempts that lie in such a folder, whole ones alone, ascending.
[[nodiscard]] std::vector<uint64_t> AttemptsIn(const std::string& folder);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_FLEET_PLAN_H_
