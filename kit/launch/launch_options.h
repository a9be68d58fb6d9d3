// The options that `vorn launch` and `vorn fleet plan` have alike, and what they ask for. For their
// mains alone: the library knows no command line.
#ifndef VORN_KIT_LAUNCH_LAUNCH_OPTIONS_H_
#define VORN_KIT_LAUNCH_LAUNCH_OPTIONS_H_

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include "kit/common/command_line.h"
#include "kit/launch/plan.h"

namespace vorn::kit {

inline constexpr uint64_t kMostOptionNumber = INT32_MAX;

inline constexpr Option kModelOption{"model", 'm', "FILE", "The model."};
inline constexpr Option kListOption{"list", 'i', "FILE",
                                    "The list of inputs, as vorn-run takes it."};
inline constexpr Option kBatchOption{"batch", 'b', "N", "Items of a batch, as vorn-run takes it."};
inline constexpr Option kTotalTOption{"total-t", 't', "N",
                                      "Frames of a sequence, as vorn-run takes it."};
inline constexpr Option kThresholdsOption{"thresholds", 'r', "FILES",
                                          "Files of thresholds, with commas between them."};
inline constexpr Option kProfileOption{
    "profile", 'p', "", "Execute each inference 21 times, as -p 1 of vorn-run does."};
inline constexpr Option kNoTextOption{"no-text", 0, "",
                                      "Remove the .float files as soon as the dump beside them is "
                                      "there; they are most of the bytes."};
inline constexpr Option kArraysOption{"npy", 0, "",
                                      "Put a .npy array, in its shape, beside each dump."};
inline constexpr Option kNoTraceOption{
    "no-trace", 0, "", "Put no layer under the program: there are no times of executions then."};

[[nodiscard]] inline std::optional<uint64_t> NumberOf(const Arguments& arguments,
                                                      std::string_view name) {
  if (!arguments.Has(name)) return std::nullopt;
  return arguments.GetNumber(name, 1, 1, kMostOptionNumber);
}

[[nodiscard]] inline std::optional<std::chrono::seconds> SecondsOf(const Arguments& arguments,
                                                                   std::string_view name) {
  const auto number = NumberOf(arguments, name);
  if (!number) return std::nullopt;
  return std::chrono::seconds(*number);
}

/// The files that are needed, `folder` being the option for what is made. Throws a Fault of kUsage.
inline void TakeNeededFiles(const Arguments& arguments, std::string_view folder,
                            LaunchRequest& request) {
  for (const auto& [name, value] :
       std::initializer_list<std::pair<std::string_view, std::string*>>{{"model", &request.model},
                                                                        {"config", &request.config},
                                                                        {"list", &request.list},
                                                                        {folder, &request.run}}) {
    *value = arguments.Need(name);
    if (value->empty()) {
      throw Fault(ExitStatus::kUsage, "--" + std::string(name) + " names nothing");
    }
  }
  while (request.run.size() > 1 && request.run.back() == '/') request.run.pop_back();
}

/// What else was given of the options above, and of --sample-timeout and --model-json.
inline void TakeLaunchOptions(const Arguments& arguments, LaunchRequest& request) {
  request.thresholds = arguments.Get("thresholds");
  request.batch = NumberOf(arguments, "batch");
  request.totalT = NumberOf(arguments, "total-t");
  request.isProfiled = arguments.Has("profile");
  request.modelJson = arguments.Get("model-json");
  request.sampleLimit = SecondsOf(arguments, "sample-timeout");
  request.isTraced = !arguments.Has("no-trace");
  request.isTextKept = !arguments.Has("no-text");
  request.areArrays = arguments.Has("npy");
}

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_LAUNCH_OPTIONS_H_
