// Which runs are of one series, and so can be compared: those that are alike in some parts of what
// they were made of.
#ifndef VORN_KIT_LEDGER_SERIES_KEY_H_
#define VORN_KIT_LEDGER_SERIES_KEY_H_

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/ledger/run_entry.h"

namespace vorn::kit {

struct KeyPart {
  std::string_view name;    ///< as --by has it
  std::string_view column;  ///< of the table `runs`
  std::string RunEntry::*member;
};

/// All of them.
[[nodiscard]] std::span<const KeyPart> AllKeyParts();

/// What a person named: model, configuration and list by their file names, the options of vorn-run
/// and the board. What is in the files, the runtime, the tool and the governor may differ within a
/// series: they are what a step is looked at for.
inline constexpr std::string_view kUsualParts = "model,config,list,options,board";

/// The parts of a list with commas, in its order, and the side of a run that took turns, which
/// belongs to every key: A and B differ on purpose. Throws a Fault of kUsage that names a part that
/// there is not, and the nearest one.
[[nodiscard]] std::vector<KeyPart> KeyPartsOf(std::string_view names);

/// The values of a run, in the order of the parts.
[[nodiscard]] std::vector<std::string> KeyOf(const RunEntry& run, std::span<const KeyPart> parts);

/// Eight hexadecimal digits by which a series is named.
[[nodiscard]] std::string SeriesNameOf(std::span<const std::string> key);

/// "digits.onnx, host.json, list.txt, -b 2, board7": what is not empty, hashes cut short.
[[nodiscard]] std::string SeriesTextOf(std::span<const std::string> key,
                                       std::span<const KeyPart> parts);

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_SERIES_KEY_H_
