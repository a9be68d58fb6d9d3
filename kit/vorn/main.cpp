// vorn: finds the program of a verb and becomes it. Verbs are programs named vorn-VERB beside this
// one, so that a board installs those that it needs.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kPrefix = "vorn-";

// The verbs beside this program, in order. vorn-run is the command itself and no verb.
std::vector<std::string> FindVerbs(const std::string& folder) {
  std::vector<std::string> verbs;
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(opendir(folder.c_str()), closedir);
  while (listing != nullptr) {
    const dirent* entry = readdir(listing.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    const bool isVerb = name.starts_with(kPrefix) && name != "vorn-run" &&
                        name.find('.') == std::string_view::npos &&
                        access((folder + "/" + entry->d_name).c_str(), X_OK) == 0;
    if (isVerb) verbs.emplace_back(name.substr(kPrefix.size()));
  }
  std::sort(verbs.begin(), verbs.end());
  return verbs;
}

void PrintUsage(FILE* stream, const std::vector<std::string>& verbs) {
  std::fputs(
      "vorn VERB [OPTION...]: what stands around vorn-run\n\n"
      "vorn VERB --help tells what a verb does. The verbs here:\n\n",
      stream);
  for (const std::string& verb : verbs) std::fprintf(stream, "  %s\n", Printable(verb).c_str());
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
    PrintUsage(stdout, verbs);
    return std::fflush(stdout) == 0 ? 0 : static_cast<int>(ExitStatus::kLimit);
  }
  if (word == "--help=names") {  // for completion
    for (const std::string& verb : verbs) std::printf("%s\n", verb.c_str());
    return std::fflush(stdout) == 0 ? 0 : static_cast<int>(ExitStatus::kLimit);
  }
  if (word.empty()) {
    PrintUsage(stderr, verbs);
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
