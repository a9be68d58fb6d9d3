// Words separated by zero bytes, parsed twice: by `ParseArgs`, and by a model of its rule that
// knows no getopt.
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "app/parse_args.h"
#include "fuzz/captured_stdout.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"

namespace fuzz {
namespace {

namespace run = vorn::run;

using Words = std::vector<std::string>;

constexpr std::string_view kOptions = "mijtbrpo";
constexpr const char* kUsage =
    "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] [-b batchSize] "
    "[-r rpnData] [-p profile] [-o outputPath]\n";

struct Outcome {
  run::SampleOptions options;
  std::string output;
  std::string raised;
};

// ---- The model ----------------------------------------------------------------------------------

bool IsOptionWord(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

// The command line while it is walked through. Words that are no options are put behind those that
// are, but an option's own words only when the next one is looked for:
//
//     done... | passed... | current | ahead...
class Walk {
 public:
  explicit Walk(Words words) : ahead_(std::move(words)) { Advance(1, done_); }

  // Steps to the next option character; false at the end. '?' for one that is unknown or lacks its
  // value.
  bool Next(char& option) {
    if (cluster_.empty() && !NextWord()) return false;
    option = cluster_.front();
    cluster_.erase(0, 1);
    if (kOptions.find(option) == std::string_view::npos) {
      option = '?';
      return true;
    }
    if (!cluster_.empty()) {
      cluster_.clear();
    } else if (ahead_.empty()) {
      option = '?';
    } else {
      Advance(1, current_);
    }
    return true;
  }

  [[nodiscard]] Words Now() const {
    Words words = done_;
    for (const Words* part : {&passed_, &current_, &ahead_}) {
      words.insert(words.end(), part->begin(), part->end());
    }
    return words;
  }

 private:
  bool NextWord() {
    done_.insert(done_.end(), current_.begin(), current_.end());
    current_.clear();
    while (!ahead_.empty() && !IsOptionWord(ahead_.front())) Advance(1, passed_);
    if (ahead_.empty() || ahead_.front() == "--") return false;
    cluster_ = ahead_.front().substr(1);
    Advance(1, current_);
    return true;
  }

  void Advance(std::ptrdiff_t count, Words& to) {
    to.insert(to.end(), ahead_.begin(), ahead_.begin() + count);
    ahead_.erase(ahead_.begin(), ahead_.begin() + count);
  }

  Words done_, passed_, current_, ahead_;
  std::string cluster_;  // what is left of the option word at hand
};

// Returns what is raised; an empty text if nothing.
std::string ModelNumber(const std::string& text, int32_t& number) {
  size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (negative || text[at] == '+')) ++at;
  const size_t digits = at;
  int64_t value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    value = std::min<int64_t>(value * 10 + (text[at] - '0'), int64_t{1} << 40);
  }
  if (at == digits) return "invalid_argument: stoi";
  if (negative) value = -value;
  if (value < INT32_MIN || value > INT32_MAX) return "out_of_range: stoi";
  number = static_cast<int32_t>(value);
  return "";
}

void ModelOption(char option, const std::string& value, Outcome& outcome) {
  run::SampleOptions& options = outcome.options;
  if (option == 'm') options.modelPath = value;
  if (option == 'i') options.imagePath = value;
  if (option == 'j') options.vornJsonPath = value;
  if (option == 'r') options.rpnData = value;
  if (option == 'o') options.outputPath = value;
  if (option == 'p') outcome.raised = ModelNumber(value, options.profile);
  if (option == 'b') outcome.raised = ModelNumber(value, options.batchSize);
  if (option == 't') outcome.raised = ModelNumber(value, options.nlpTotalT);
  if (!outcome.raised.empty()) return;
  if (option == 'b') {
    outcome.output += "[INFO]  batchSize: " + std::to_string(options.batchSize) + "\n";
  }
  if (option == 't') {
    outcome.output += "[INFO]  nlpTotalT: " + std::to_string(options.nlpTotalT) + "\n";
  }
}

Outcome Model(const Words& words) {
  Outcome outcome;
  Walk walk(words);
  char option = 0;
  for (size_t position = 2; outcome.raised.empty() && walk.Next(option); position += 2) {
    if (option == '?') {
      outcome.output += kUsage;
    } else if (position >= words.size()) {
      outcome.raised = "logic_error: basic_string::_M_construct null not valid";
    } else {
      ModelOption(option, walk.Now()[position], outcome);
    }
  }
  return outcome;
}

// ---- The command line itself --------------------------------------------------------------------

Outcome Parse(const Words& words) {
  // Each word in an allocation of its own size: a look past its end is noticed.
  std::vector<std::unique_ptr<char[]>> copies;
  const auto argv = std::make_unique<char*[]>(words.size() + 1);
  for (size_t i = 0; i < words.size(); ++i) {
    copies.push_back(std::make_unique<char[]>(words[i].size() + 1));
    std::ranges::copy(words[i], copies.back().get());
    argv[i] = copies.back().get();
  }
  optind = 0;  // getopt starts anew
  opterr = 0;
  Outcome outcome;
  try {
    run::ParseArgs(outcome.options, static_cast<int>(words.size()), argv.get());
  } catch (const std::invalid_argument& error) {
    outcome.raised = std::string("invalid_argument: ") + error.what();
  } catch (const std::out_of_range& error) {
    outcome.raised = std::string("out_of_range: ") + error.what();
  } catch (const std::logic_error& error) {
    outcome.raised = std::string("logic_error: ") + error.what();
  }
  outcome.output = TakeStdout();
  return outcome;
}

Words SplitAtZeros(std::span<const uint8_t> bytes) {
  Words words{"vorn-run"};
  auto next = bytes.begin();
  while (next != bytes.end()) {
    const auto end = std::find(next, bytes.end(), 0);
    words.emplace_back(next, end);
    next = end == bytes.end() ? end : end + 1;
  }
  return words;
}

}  // namespace

void CommandLine(std::span<const uint8_t> bytes) {
  const Words words = SplitAtZeros(bytes);
  if (words.size() > 256) return;
  const Outcome expected = Model(words);
  const Outcome actual = Parse(words);
  Require(actual.raised == expected.raised,
          "raised '" + actual.raised + "', expected '" + expected.raised + "'");
  Require(actual.output == expected.output, "output '" + actual.output + "'");
  Require(actual.options.modelPath == expected.options.modelPath, "-m");
  Require(actual.options.imagePath == expected.options.imagePath, "-i");
  Require(actual.options.vornJsonPath == expected.options.vornJsonPath, "-j");
  Require(actual.options.rpnData == expected.options.rpnData, "-r");
  Require(actual.options.outputPath == expected.options.outputPath, "-o");
  Require(actual.options.batchSize == expected.options.batchSize, "-b");
  Require(actual.options.nlpTotalT == expected.options.nlpTotalT, "-t");
  Require(actual.options.profile == expected.options.profile, "-p");
}

}  // namespace fuzz
