// What a run of `vorn-run` has to say, block by block, written down by hand. A test puts the blocks
// of its run together and compares the whole; the lines that it is about it writes out in full.
#ifndef VORN_TESTS_E2E_EXPECTED_H_
#define VORN_TESTS_E2E_EXPECTED_H_

#include <cstdint>
#include <string>
#include <vector>

#include "support/model_script.h"
#include "support/stage.h"

namespace e2e {

using Lines = std::vector<std::string>;

[[nodiscard]] Lines Join(const std::vector<Lines>& blocks);

/// One line for each path that is checked.
[[nodiscard]] Lines PathChecks(const std::vector<std::string>& paths);

/// The paths of a plain command line, the runtime coming up, the model loaded and described.
[[nodiscard]] Lines UpToInfo();

/// The runtime coming up.
[[nodiscard]] Lines BringUp();

/// The two blocks about the model's inputs and outputs.
[[nodiscard]] Lines Info(const support::ModelScript& script, uint64_t batchSize = 1);

/// The output dataset made, and the numbers of inputs and of inferences.
[[nodiscard]] Lines Plan(uint64_t inputNum, uint64_t iterations);

/// One input file read without a warning; the shape is left out for recurrent models.
[[nodiscard]] Lines Reading(const std::string& path, const support::TensorSpec& tensor,
                            uint64_t elementBytes, bool withShape = true);

/// The lines of an input file up to the check of its length.
[[nodiscard]] Lines ReadingHead(const std::string& path, const support::TensorSpec& tensor,
                                uint64_t elementBytes);

[[nodiscard]] Lines BatchSet(uint64_t batchSize = 1);

/// One execution, and the dump of outputs of these type codes.
[[nodiscard]] Lines ExecutedAndDumped(const std::vector<uint32_t>& types);

[[nodiscard]] Lines Unloaded(uint32_t modelId = 1);

/// The outcome of the whole and the runtime going down.
[[nodiscard]] Lines Success();
[[nodiscard]] Lines ProcessFailed();
[[nodiscard]] Lines Closing();

/// `[1, 2, ]` and `1,2`.
[[nodiscard]] std::string InfoShape(const std::vector<int64_t>& dims);
[[nodiscard]] std::string ReadShape(const std::vector<int64_t>& dims);

/// The text dump of these values.
[[nodiscard]] std::string TextDump(const std::vector<float>& values);

/// One input `in0` of 2 rows of 3 floats, 16 bytes apart; the scratch inputs; one output `prob` of
/// 3 floats, which an execution sets to 1.5, -2 and 0.25.
[[nodiscard]] support::ModelScript PlainScript();
inline const std::vector<float> kPlainInput{1, 2, 3, 4, 5, 6};
inline const std::vector<float> kPlainOutput{1.5F, -2, 0.25F};

/// A stage with the plain model and a list of one fitting file, a.bin.
void SetPlain(support::Stage* stage);

/// The whole standard output of the plain run.
[[nodiscard]] Lines PlainRun(const support::ModelScript& script);

/// Fails the test unless the run broke no rule of the runtime and returned all it took.
void ExpectClean(const support::Transcript& transcript);

/// Fails the test unless the run ended like this, and shows all of it then.
void ExpectStatus(const support::Transcript& transcript, int status);

/// Fails the test unless all lines stand in the output, in this order, with or without others.
void ExpectLinesInOrder(const support::Transcript& transcript, const Lines& lines);

/// The input files that the run set out to read, in order.
[[nodiscard]] Lines FilesRead(const support::Transcript& transcript);

/// The entries of the list as they were checked.
[[nodiscard]] Lines EntriesChecked(const support::Transcript& transcript);

/// What the system's realpath leaves in a zeroed buffer, as a run in the stage would show it.
[[nodiscard]] std::string Resolved(const support::Stage& stage, const std::string& path);

/// The lines of a run that ended in an input, from the first that is wrong to the end.
[[nodiscard]] Lines FailedInput(const Lines& cause);

/// The lines from the first error on.
[[nodiscard]] Lines FromFirstError(const support::Transcript& transcript);

/// The input blocks that an execution (from 1) saw.
[[nodiscard]] std::vector<support::Sight> InputsSeen(const support::Transcript& transcript,
                                                     uint64_t execution = 1);

}  // namespace e2e

#endif  // VORN_TESTS_E2E_EXPECTED_H_
