#include "examples/digit-finder/finder_run.h"

#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/files.h"
#include "support/stage.h"

namespace finder {
namespace {

namespace fs = std::filesystem;

const fs::path kFolder = DIGIT_FINDER_FOLDER;

/// The one binary dump of an output in the folder of an inference, as floats.
std::vector<float> ReadDump(const fs::path& folder, const std::string& output) {
  for (const auto& [name, bytes] : support::ReadTree(folder)) {
    if (!name.starts_with(output + ".0.") || !name.ends_with(".bin")) continue;
    std::vector<float> values(bytes.size() / sizeof(float));
    std::memcpy(values.data(), bytes.data(), bytes.size());
    return values;
  }
  throw std::runtime_error("no dump of " + output + " in " + folder.string());
}

/// The findings of all items of an inference, one item after the other.
void AppendFindings(const fs::path& folder, std::vector<std::vector<Finding>>& findings) {
  const std::vector<float> counts = ReadDump(folder, "count");
  const std::vector<float> values = ReadDump(folder, "findings");
  const size_t room = values.size() / counts.size() / 6;
  for (size_t item = 0; item < counts.size(); ++item) {
    std::vector<Finding> rows(room);
    std::memcpy(rows.data(), values.data() + item * room * 6, room * sizeof(Finding));
    const auto count = static_cast<size_t>(counts[item]);
    if (count > room) throw std::runtime_error("there is no room for all findings");
    for (size_t row = count; row < room; ++row) {
      if (rows[row] != Finding{}) throw std::runtime_error("something is behind the findings");
    }
    rows.resize(count);
    findings.push_back(rows);
  }
}

}  // namespace

support::Command CommandOf(const FinderRun& run, const fs::path& folder) {
  fs::path thresholds = kFolder / "thresholds" / run.thresholds;
  if (!run.thresholds.ends_with(".txt")) {
    thresholds = folder / "thresholds.txt";
    support::WriteFile(thresholds, run.thresholds);
  }
  fs::path config = kFolder / "host.json";
  if (!run.config.empty()) {
    config = folder / "host.json";
    support::WriteFile(config, run.config);
  }
  fs::create_directory(folder / "out");
  support::Command command;
  command.program = support::VornRunPath();
  command.arguments = {"-m", kFolder / run.model,
                       "-i", run.list.empty() ? kFolder / "list.txt" : run.list,
                       "-j", config,
                       "-r", thresholds,
                       "-b", run.batch,
                       "-o", folder / "out"};
  command.environment["VORN_LOG"] = "1";
  return command;
}

std::vector<std::vector<Finding>> Find(const FinderRun& run) {
  const support::TempDir folder;
  const support::Outcome outcome = support::RunCommand(CommandOf(run, folder.Path()));
  if (outcome.status != 0 || !outcome.err.empty()) throw std::runtime_error(outcome.Describe());
  std::vector<std::vector<Finding>> findings;
  for (size_t i = 0; fs::exists(folder.Path() / "out" / std::to_string(i)); ++i) {
    AppendFindings(folder.Path() / "out" / std::to_string(i), findings);
  }
  return findings;
}

std::string Scene(size_t number) {
  const std::string name = std::to_string(number);
  return support::ReadFile(kFolder / "scenes" /
                           (std::string(2 - name.size(), '0') + name + ".bin"));
}

std::vector<Finding> Truth(size_t scene) {
  std::istringstream lines(support::ReadFile(kFolder / "truth.txt"));
  std::vector<Finding> truth;
  size_t number = 0;
  Finding digit{.box = {}, .score = 1, .digit = 0};
  while (lines >> number >> digit.box.x1 >> digit.box.y1 >> digit.box.x2 >> digit.box.y2 >>
         digit.digit) {
    if (number == scene) truth.push_back(digit);
  }
  return truth;
}

std::string TextOf(const ThresholdsByClass& thresholds) {
  std::ostringstream text;
  const char* between = "";
  for (const auto kind :
       {&Thresholds::score, &Thresholds::overlap, &Thresholds::ink, &Thresholds::most}) {
    for (const Thresholds& ofClass : thresholds) {
      text << between << ofClass.*kind;
      between = " ";
    }
  }
  return text.str();
}

}  // namespace finder
