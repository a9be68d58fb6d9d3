#include "e2e/compare_run.h"

#include <algorithm>
#include <filesystem>

namespace e2e {
namespace {

using Strings = std::vector<std::string>;

std::string EndOf(std::optional<int> status, std::optional<int> signal) {
  if (status) return "status " + std::to_string(*status);
  return signal ? "signal " + std::to_string(*signal) : "no end";
}

/// The first line that differs, between three lines before and some behind.
std::string DifferenceOfLines(const char* what, const Strings& expected, const Strings& actual) {
  if (expected == actual) return "";
  const auto [left, right] =
      std::mismatch(expected.begin(), expected.end(), actual.begin(), actual.end());
  const auto at = static_cast<size_t>(left - expected.begin());
  std::string text = std::string("--- ") + what + ", line " + std::to_string(at + 1) + " of " +
                     std::to_string(expected.size()) + " foretold and " +
                     std::to_string(actual.size()) + " written\n";
  for (size_t i = at < 3 ? 0 : at - 3; i < at; ++i) text += "    " + expected[i] + "\n";
  for (size_t i = at; i < std::min(at + 6, expected.size()); ++i) {
    text += "  - " + expected[i] + "\n";
  }
  for (size_t i = at; i < std::min(at + 6, actual.size()); ++i) text += "  + " + actual[i] + "\n";
  return text;
}

std::string DifferenceOfFiles(const std::map<std::string, std::string>& expected,
                              const std::map<std::string, std::string>& actual) {
  std::string text;
  for (const auto& [name, bytes] : expected) {
    const auto found = actual.find(name);
    if (found == actual.end()) {
      text += "  - " + name + "\n";
    } else if (found->second != bytes) {
      text += "  ! " + name + ": " + support::Hex(bytes).substr(0, 400) + "\n    written " +
              support::Hex(found->second).substr(0, 400) + "\n";
    }
  }
  for (const auto& [name, bytes] : actual) {
    if (expected.count(name) == 0) text += "  + " + name + "\n";
  }
  return text.empty() ? "" : "--- files\n" + text;
}

/// Only getopt names the program, and by the path that it was started with.
Strings ErrorLines(std::string text) {
  const std::string program = support::VornRunPath() + ":";
  for (size_t at = text.find(program); at != std::string::npos; at = text.find(program, at)) {
    text.replace(at, program.size(), "vorn-run:");
  }
  return support::SplitLines(text);
}

}  // namespace

support::Transcript Play(const RunPlan& plan, Keeping keeping) {
  support::Stage stage;
  stage.isOutRecorded = keeping == Keeping::kTogether;
  std::filesystem::remove(stage.Folder() / "model.om");
  std::filesystem::remove(stage.Folder() / "vorn.json");
  if (plan.folders.count("out") == 0) std::filesystem::remove(stage.Folder() / "out");
  for (const std::string& name : plan.folders) {
    std::filesystem::create_directories(stage.Folder() / name);
  }
  for (const auto& [name, bytes] : plan.files) stage.File(name, bytes);
  stage.script.Line(ScriptOf(plan));
  return stage.RunWith(plan.words);
}

std::string Difference(const RunPlan& plan, const ForetoldRun& foretold,
                       const support::Transcript& run, Keeping keeping) {
  std::string text;
  const std::string expected = EndOf(foretold.status, foretold.signal);
  const std::string actual = EndOf(run.status, run.signal);
  if (expected != actual) text += "--- the end: foretold " + expected + ", was " + actual + "\n";
  if (keeping == Keeping::kTogether) {
    text += DifferenceOfLines("standard output and record", foretold.together, run.record.Lines());
  } else {
    text += DifferenceOfLines("standard output", foretold.lines, run.lines);
    text += DifferenceOfLines("record", foretold.record, run.record.Lines());
  }
  text += DifferenceOfLines("standard error", foretold.errors, ErrorLines(run.err));
  text += DifferenceOfFiles(foretold.files, run.files);
  return text.empty() ? "" : text + "--- the plan\n" + Describe(plan);
}

std::string PlayAndCompare(const RunPlan& plan) {
  const Keeping keeping = Keeping::kTogether;
  return Difference(plan, ModelOfRun(plan), Play(plan, keeping), keeping);
}

}  // namespace e2e
