// Runs fuzz targets without a fuzzer: on every input in corpus/ and findings/, and on random
// changes of those, the same ones each time. Which targets is the build's choice.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/captured_stdout.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "support/files.h"

namespace {

constexpr unsigned kSeed = 20240229;
constexpr int kChangedInputs = 600;

struct Target {
  const char* name;
  void (*run)(std::span<const uint8_t>);
};

constexpr Target kTargets[] = {
#ifdef VORN_REPLAY_WHOLE_RUN  // the one on the scripted runtime, in a program of its own
    {"whole_run", fuzz::WholeRun},
#elif defined(VORN_REPLAY_MODEL_IMAGE)    // the one on the host runtime
    {"model_image", fuzz::ModelImage},
#elif defined(VORN_REPLAY_CONFIGURATION)  // the one below the host runtime's interface
    {"configuration", fuzz::Configuration},
#elif defined(VORN_REPLAY_PICTURES)       // the one that needs the libraries of pictures
    {"pictures", fuzz::Pictures},
#elif defined(VORN_REPLAY_KIT)
    {"judge_files", fuzz::JudgeFiles},
    {"kit_texts", fuzz::KitTexts},
    {"launch_texts", fuzz::LaunchTexts},
    {"trace_file", fuzz::TraceBytes},
#elif defined(VORN_REPLAY_PREPARE)
    {"prepare_files", fuzz::PrepareFiles},
#elif defined(VORN_REPLAY_HISTORY)
    {"history_files", fuzz::HistoryFiles},
#elif defined(VORN_REPLAY_MANIFESTS)
    {"manifests", fuzz::Manifests},
#elif defined(VORN_REPLAY_RUN_FOLDER)
    {"run_folder", fuzz::RunFolder},
#else
    {"command_line", fuzz::CommandLine}, {"list_file", fuzz::ListFile}, {"rpn_text", fuzz::RpnText},
    {"input_file", fuzz::InputFile},     {"dump", fuzz::Dump},
#endif
};

std::ostream& operator<<(std::ostream& stream, const Target& target) {
  return stream << target.name;
}

// Empty, or what did not hold.
std::string WhatFails(const Target& target, const std::string& input) {
  const fuzz::CapturedStdout captured;
  try {
    target.run({reinterpret_cast<const uint8_t*>(input.data()), input.size()});
  } catch (const fuzz::Violation& violation) {
    return violation.text + ", input " + support::Hex(input);
  }
  return "";
}

// The inputs in one folder of the target, in the order of their names.
std::vector<std::string> Inputs(const Target& target, const std::string& folder) {
  std::vector<std::string> inputs;
  const std::filesystem::path path(VORN_FUZZ_FOLDER);
  for (const auto& [name, bytes] : support::ReadTree(path / folder / target.name)) {
    inputs.push_back(bytes);
  }
  return inputs;
}

std::vector<Target> TargetsWithFindings() {
  std::vector<Target> targets;
  std::copy_if(std::begin(kTargets), std::end(kTargets), std::back_inserter(targets),
               [](const Target& target) { return !Inputs(target, "findings").empty(); });
  return targets;
}

using Replay = testing::TestWithParam<Target>;
using ReplayOfFindings = testing::TestWithParam<Target>;

TEST_P(Replay, HoldsForTheCorpus) {
  const auto inputs = Inputs(GetParam(), "corpus");
  EXPECT_FALSE(inputs.empty());
  for (const std::string& input : inputs) EXPECT_EQ(WhatFails(GetParam(), input), "");
}

TEST_P(Replay, HoldsForTheEmptyInput) { EXPECT_EQ(WhatFails(GetParam(), ""), ""); }

void ChangeOnce(std::string& input, const std::string& other, std::mt19937& random) {
  const size_t at = input.empty() ? 0 : random() % input.size();
  const auto byte = static_cast<char>(random());
  switch (input.empty() ? 1 : random() % 5) {
    case 0:
      input[at] = byte;
      break;
    case 1:
      input.insert(at, 1, byte);
      break;
    case 2:
      input.erase(at, 1 + random() % 4);
      break;
    case 3:
      input[at] = static_cast<char>(input[at] ^ 1 << random() % 8);
      break;
    default:
      input.replace(at, std::string::npos, other.substr(std::min(at, other.size())));
      break;
  }
}

TEST_P(Replay, HoldsForChangesOfTheCorpus) {
  SCOPED_TRACE("seed " + std::to_string(kSeed));
  std::mt19937 random(kSeed);
  const auto corpus = Inputs(GetParam(), "corpus");
  ASSERT_FALSE(corpus.empty());
  for (int i = 0; i < kChangedInputs; ++i) {
    std::string input = corpus[random() % corpus.size()];
    const auto changes = 1 + random() % 4;
    for (unsigned k = 0; k < changes; ++k) {
      ChangeOnce(input, corpus[random() % corpus.size()], random);
    }
    ASSERT_EQ(WhatFails(GetParam(), input), "");
  }
}

TEST_P(ReplayOfFindings, HoldsForWhatOnceFailed) {
  for (const std::string& input : Inputs(GetParam(), "findings")) {
    EXPECT_EQ(WhatFails(GetParam(), input), "");
  }
}

std::string NameOf(const testing::TestParamInfo<Target>& replayed) { return replayed.param.name; }

INSTANTIATE_TEST_SUITE_P(Fuzz, Replay, testing::ValuesIn(kTargets), NameOf);

// Most targets have failed for nothing so far.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ReplayOfFindings);
INSTANTIATE_TEST_SUITE_P(Fuzz, ReplayOfFindings, testing::ValuesIn(TargetsWithFindings()), NameOf);

}  // namespace
