// vorn: finds the program of a verb and becomes it. Verbs are programs named vorn-VERB beside this
// one, so that a board installs those that it needs.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/folder_names.h"
#include "kit/common/nearest.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kPrefix = "vorn-";

// The verbs beside this program, in order. vorn-run is the command itself and no verb.
std::vector<std::string> FindVerbs(const std::string& folder) {
  std::vector<std::string> verbs;
  for (const std::string& name : NamesIn(folder)) {
    const bool isVerb = name.starts_with(kPrefix) && name != "vorn-run" &&
                        name.find('.') == std::string::npos &&
                        access((folder + "/" + name).c_str(), X_OK) == 0;
    if (isVerb) verbs.push_back(name.substr(kPrefix.size()));
  }
  return verbs;
}

// What a program prints, up to the end of its first line, in two seconds at most.
std::string FirstLineOf(const std::string& program, const char* word) {
  constexpr int kMostSeconds = 2;
  constexpr size_t kMostBytes = 200;
  std::array<int, 2> pipe{};
  if (pipe2(pipe.data(), O_CLOEXEC) != 0) return "";
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    dup2(null, STDIN_FILENO);
    dup2(pipe[1], STDOUT_FILENO);
    dup2(null, STDERR_FILENO);
    setpgid(0, 0);
    execl(program.c_str(), program.c_str(), word, nullptr);
    _exit(1);
  }
  close(pipe[1]);
  std::string text;
  pollfd said{.fd = pipe[0], .events = POLLIN, .revents = 0};
  while (child > 0 && text.size() < kMostBytes && text.find('\n') == std::string::npos &&
         poll(&said, 1, kMostSeconds * 1000) > 0) {
    std::array<char, kMostBytes> piece{};
    const ssize_t got = read(pipe[0], piece.data(), piece.size());
    if (got <= 0) break;
    text.append(piece.data(), static_cast<size_t>(got));
  }
  close(pipe[0]);
  int status = 0;
  const bool isWhole = text.find('\n') != std::string::npos && text.size() <= kMostBytes;
  if (child > 0 && !isWhole) kill(-child, SIGKILL);
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return isWhole && status == 0 ? text.substr(0, text.find('\n')) : "";
}

// With what each verb says of itself, by its own table; one that says nothing stands alone.
void PrintUsage(FILE* stream, const std::string& folder, const std::vector<std::string>& verbs) {
  std::fputs(
      "vorn VERB [OPTION...]: what stands around vorn-run\n\n"
      "vorn VERB --help tells what a verb does. The verbs here:\n\n",
      stream);
  size_t width = 0;
  for (const std::string& verb : verbs) width = std::max(width, Printable(verb).size());
  for (const std::string& verb : verbs) {
    const std::string summary =
        Printable(FirstLineOf(folder + "/" + std::string(kPrefix) + verb, "--help=summary"));
    std::string line = "  " + Printable(verb);
    if (!summary.empty()) {
      line.resize(width + 4, ' ');
      line += summary;
    }
    std::fprintf(stream, "%s\n", line.c_str());
  }
}

[[noreturn]] void Become(const std::string& folder, const std::string& verb, char** argv) {
  const std::string program = folder + "/" + std::string(kPrefix) + verb;
  execv(program.c_str(), argv + 1);
  throw Fault(ExitStatus::kOwnFault,
              "cannot start '" + Printable(program) + "': " + SystemReason(errno));
}

int Dispatch(int argc, char** argv) {
  const std::string folder = OwnFolder();
  const std::vector<std::string> verbs = FindVerbs(folder);
  const std::string word = argc < 2 ? "" : argv[1];
  if (word == "--help" || word == "-h" || word == "help") {
    PrintUsage(stdout, folder, verbs);
    return std::fflush(stdout) == 0 ? 0 : static_cast<int>(ExitStatus::kLimit);
  }
  if (word == "--help=names") {  // for completion
    for (const std::string& verb : verbs) std::printf("%s\n", verb.c_str());
    return std::fflush(stdout) == 0 ? 0 : static_cast<int>(ExitStatus::kLimit);
  }
  if (word.empty()) {
    PrintUsage(stderr, folder, verbs);
    return static_cast<int>(ExitStatus::kUsage);
  }
  if (std::find(verbs.begin(), verbs.end(), word) == verbs.end()) {
    throw Fault(ExitStatus::kUsage, "there is no verb '" + Printable(word) + "'" +
                                        DidYouMean(word, verbs) + "; vorn --help lists those in " +
                                        Printable(folder));
  }
  Become(folder, word, argv);
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  try {
    return vorn::kit::Dispatch(argc, argv);
  } catch (const vorn::kit::Fault& fault) {
    std::fprintf(stderr, "vorn: %s\n", fault.what());
    return static_cast<int>(fault.Status());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "vorn: %s\n", error.what());
    return static_cast<int>(vorn::kit::ExitStatus::kOwnFault);
  }
}
