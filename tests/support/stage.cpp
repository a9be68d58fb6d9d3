#include "support/stage.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
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

size_t CountDigits(const std::string& text, size_t at) {
  size_t count = 0;
  while (at + count < text.size() && std::isdigit(static_cast<unsigned char>(text[at + count]))) {
    ++count;
  }
  return count;
}

/// `.1699999999123456.float` becomes `.T.float`; a stamp has 16 digits from 2001 to 2286.
std::string ReplaceStamps(std::string text) {
  constexpr size_t kDigits = 16;
  for (size_t at = text.find('.'); at != std::string::npos; at = text.find('.', at + 1)) {
    const size_t after = at + 1 + kDigits;
    if (CountDigits(text, at + 1) == kDigits &&
        (text.compare(after, 6, ".float") == 0 || text.compare(after, 4, ".bin") == 0)) {
      text.replace(at + 1, kDigits, "T");
    }
  }
  return text;
}

/// `... Time:  12.34 ms` becomes `... Time:  T ms`.
std::string ReplaceTimes(std::string text) {
  for (size_t at = text.find(" Time:"); at != std::string::npos; at = text.find(" Time:", at + 1)) {
    const size_t start = std::min(text.find_first_not_of(' ', at + 6), text.size());
    // The clock that the command reads may be set back meanwhile.
    const size_t sign = text[start] == '-' ? 1 : 0;
    const size_t whole = CountDigits(text, start + sign);
    const size_t point = start + sign + whole;
    const size_t length = sign + whole + 3;  // a point and two digits more
    if (whole > 0 && text[point] == '.' && CountDigits(text, point + 1) == 2 &&
        text.compare(start + length, 3, " ms") == 0) {
      text.replace(start, length, "T");
    }
  }
  return text;
}

std::string JoinPath(const std::string& first, const char* rest) {
  return rest == nullptr || *rest == '\0' ? first : first + ":" + rest;
}

}  // namespace

std::string VornRunPath() {
  const char* named = std::getenv("VORN_RUN");
  std::string path = named != nullptr ? named : VORN_RUN_DEFAULT;
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
  std::vector<std::string> line = launcher;
  line.push_back(VornRunPath());
  line.insert(line.end(), words.begin(), words.end());
  command.program = line.front();
  command.arguments.assign(line.begin() + 1, line.end());
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
  if (isOutRecorded) {
    command.stdoutGoes = Command::Stdout::kDescriptor;
    command.descriptor =
        open((aside.Path() / "record").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  }
  const Outcome outcome = RunCommand(command);
  if (isOutRecorded) close(command.descriptor);

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
  return ReplaceTimes(ReplaceStamps(ReplaceAll(text, Folder().string(), "$DIR")));
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
