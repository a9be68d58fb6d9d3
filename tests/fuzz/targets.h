// The fuzz targets. Each turns any bytes into one use of a part of this project and throws
// `fuzz::Violation` where the part does not do what a slow, plain reference says. They run one
// after the other in one process, on one thread, with standard output caught (captured_stdout.h).
#ifndef VORN_TESTS_FUZZ_TARGETS_H_
#define VORN_TESTS_FUZZ_TARGETS_H_

#include <cstdint>
#include <span>

namespace fuzz {

/// Zero-separated words, parsed as a command line.
void CommandLine(std::span<const uint8_t> bytes);

/// A list file: its entries, and their order by the names of model inputs.
void ListFile(std::span<const uint8_t> bytes);

/// A text of thresholds, and the block that they are written to.
void RpnText(std::span<const uint8_t> bytes);

/// A description of one model input and a file for it.
void InputFile(std::span<const uint8_t> bytes);

/// Descriptions of model outputs and the blocks behind them, dumped to files.
void Dump(std::span<const uint8_t> bytes);

/// A model, the answers of its runtime, options and files: one run from first to last.
void WholeRun(std::span<const uint8_t> bytes);

/// The image of a model, loaded and executed by the host runtime.
void ModelImage(std::span<const uint8_t> bytes);

/// A text as the host runtime's configuration, and as the settings of a model.
void Configuration(std::span<const uint8_t> bytes);

/// One of the texts that the kit reads: JSON, files of a run directory, a description, a log.
void KitTexts(std::span<const uint8_t> bytes);

/// Files that vorn judge reads: arrays, tensors, lines of numbers, maps, rules, labels; and values
/// for which it looks for a cause.
void JudgeFiles(std::span<const uint8_t> bytes);

/// A file of a picture, decoded, or a picture, resized.
void Pictures(std::span<const uint8_t> bytes);

/// Files and texts that tensors are made of: archives apart, which JudgeFiles has.
void PrepareFiles(std::span<const uint8_t> bytes);

/// The manifest of prepared tensors, and the notes that are kept before.
void Manifests(std::span<const uint8_t> bytes);

/// A file of a run directory that a report is made of.
void RunFolder(std::span<const uint8_t> bytes);

/// One of the texts around a run: a set of calls, a list, a log, times.
void LaunchTexts(std::span<const uint8_t> bytes);

/// What vorn history reads: a database, a line of an export, a verdict, a run.
void HistoryFiles(std::span<const uint8_t> bytes);

/// The file of a trace, in every way that it is told.
void TraceBytes(std::span<const uint8_t> bytes);

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_TARGETS_H_
