#include "support/stage.h"

#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <stdexcept>

namespace support {
namespace {

namespace fs = std::filesystem;

// A status of its own for what a sanitizer finds: 1 is the command's. Signals stay signals.
constexpr char kSanitizerOptions[] =
    "exitcode=86:handle_abort=0:handle_sigfpe=0:handle_segv=1:detect_leaks=1";

std::string ReplaceAll(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string JoinPath(const std::string& first, const char* rest) {
  return rest == nullptr || *rest == '\0' ? first : first + ":" + rest;
}

}  // namespace

std::string VornRunPath() {
  const char* named = std::getenv("VORN_RUN");
  const std::string path = named != nullptr ? named : VORN_RUN_DEFAULT;
  if (path.empty()) throw std::runtime_error("VORN_RUN names no executable and none was built");
  return path;
}

Stage::Stage() {
  File("model.om", "the image of the network\n").File("vorn.json", "{}\n");
  fs::create_directory(Folder() / "out");
}

Stage& Stage::File(const std::string& name, const std::string& bytes) {
  WriteFile(Folder() / name, bytes);
  return *this;
}

Stage& Stage::List(const std::vector<std::string>& entries) {
  std::string text;
  for (const std::string& entry : entries) text += entry + "\n";
  return File("list.txt", text);
}

Transcript Stage::Run(const std::vector<std::string>& more) {
  std::vector<std::string> words{"-m", "model.om",  "-i", "list.txt",
                                 "-j", "vorn.json", "-o", "out"};
  words.insert(words.end(), more.begin(), more.end());
  return RunWith(words);
}

Transcript Stage::RunWith(const std::vector<std::string>& words) {
  // Outside the stage's folder, which belongs to the test.
  const TempDir aside;
  WriteFile(aside.Path() / "script", script.Text());

  Command command;
  command.program = VornRunPath();
  command.arguments = words;
  command.directory = Folder();
  command.stdoutGoes = stdoutGoes;
  command.descriptor = descriptor;
  command.environment = environment;
  command.environment["VORN_SCRIPT"] = (aside.Path() / "script").string();
  command.environment["VORN_RECORD"] = (aside.Path() / "record").string();
  command.environment["LD_LIBRARY_PATH"] =
      JoinPath(VORN_SCRIPTED_FOLDER, std::getenv("LD_LIBRARY_PATH"));
  command.environment["LC_ALL"] = "C";
  command.environment["ASAN_OPTIONS"] = kSanitizerOptions;
  command.environment["UBSAN_OPTIONS"] = "exitcode=86:print_stacktrace=1:halt_on_error=1";
  const Outcome outcome = RunCommand(command);

  Transcript transcript;
  transcript.status = outcome.status;
  transcript.signal = outcome.signal;
  transcript.rawOut = outcome.out;
  transcript.lines = SplitLines(Normalise(outcome.out));
  transcript.err = Normalise(outcome.err);
  if (fs::exists(aside.Path() / "record")) {
    transcript.record = CallRecord(SplitLines(Normalise(ReadFile(aside.Path() / "record"))));
  }
  for (const auto& [name, bytes] : ReadTree(Folder() / outputFolder)) {
    transcript.rawFileNames.push_back(name);
    transcript.files[Normalise(name)] = bytes;
  }
  return transcript;
}

std::string Stage::Normalise(const std::string& text) const {
  // A time stamp in microseconds has 16 digits from 2001 to 2286.
  static const std::regex stamp(R"(\.[0-9]{16}\.(float|bin))");
  static const std::regex time(R"(( Time: +)[0-9]+\.[0-9][0-9] ms)");
  std::string result = ReplaceAll(text, Folder().string(), "$DIR");
  result = std::regex_replace(result, stamp, ".T.$1");
  return std::regex_replace(result, time, "$1T ms");
}

std::string Transcript::Describe() const {
  std::string text;
  if (status) text += "exit status " + std::to_string(*status) + "\n";
  if (signal) text += "signal " + std::to_string(*signal) + "\n";
  text += "--- standard output\n";
  for (const std::string& line : lines) text += line + "\n";
  text += "--- standard error\n" + err + "--- record\n";
  for (const std::string& line : record.Lines()) text += line + "\n";
  text += "--- files\n";
  for (const auto& [name, bytes] : files) {
    text += name + " (" + std::to_string(bytes.size()) + " bytes)\n";
  }
  return text + "---\n";
}

bool Transcript::EndedByDivision() const { return signal == SIGFPE; }

bool Transcript::HasLine(const std::string& line) const {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::vector<std::string> Transcript::Between(const std::string& from, const std::string& to) const {
  const auto start = std::find(lines.begin(), lines.end(), from);
  return {start, std::find(start, lines.end(), to)};
}

}  // namespace support
