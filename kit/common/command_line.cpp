// Reading the words of a command line, and the main of all verbs.
#include "kit/common/command_line.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>

#include "kit/common/nearest.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr Option kCommonOptions[] = {
    {"help", 'h', "",
     "Print this, and nothing else happens. --help=page, =man and =names print "
     "the same as Markdown, as a manual page and for completion."},
};

std::vector<std::string> NamesOf(const Verb& verb) {
  std::vector<std::string> names;
  for (const Option& option : AllOptions(verb)) names.push_back("--" + std::string(option.name));
  return names;
}

[[noreturn]] void RefuseUsage(const std::string& message) {
  throw Fault(ExitStatus::kUsage, message);
}

bool IsOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

bool PrintWhole(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() &&
         std::fflush(stdout) == 0;
}

ExitStatus PrintHelp(const Verb& verb, const VerbPart* part, std::string_view form) {
  std::string text;
  if (form.empty()) {
    text = part == nullptr ? HelpText(verb) : HelpText(verb, *part);
  } else if (form == "page") {
    text = HelpPage(verb);
  } else if (form == "man") {
    text = ManualPage(verb);
  } else if (form == "names") {
    text = OptionNames(verb);
  } else if (form == "summary") {  // which `vorn --help` asks for
    text = std::string(verb.summary) + "\n";
  } else {
    RefuseUsage("there is no help of the form '" + Printable(form) +
                "'; --help, --help=page, --help=man or --help=names");
  }
  if (!PrintWhole(text)) {
    throw Fault(ExitStatus::kLimit, "cannot write to standard output: " + SystemReason(errno));
  }
  return ExitStatus::kDone;
}

constexpr int kFailureBesideProgram = 125;

// Whether a word is an option whose value is the next one.
bool TakesNext(const Verb& verb, const std::string& word) {
  for (const Option& option : AllOptions(verb)) {
    if (option.value.empty()) continue;
    const bool isName = word == "--" + std::string(option.name);
    const bool isLetter = option.letter != 0 && word == std::string("-") + option.letter;
    if (isName || isLetter) return true;
  }
  return false;
}

// The form of help that the words ask for, whatever else is wrong with them.
std::optional<std::string> AskedHelp(const Verb& verb, std::span<const std::string> words) {
  for (size_t at = 0; at < words.size(); ++at) {
    const std::string& word = words[at];
    if (word == "--" || (verb.runsProgram && !IsOption(word))) break;
    if (word == "--help" || word == "-h") return "";
    if (word.starts_with("--help=")) return word.substr(std::strlen("--help="));
    if (TakesNext(verb, word)) ++at;
  }
  return std::nullopt;
}

// The part that the first operand names; null where none does.
const VerbPart* PartIn(const Verb& verb, std::span<const std::string> words) {
  for (size_t at = 0; at < words.size(); ++at) {
    if (IsOption(words[at])) {
      if (TakesNext(verb, words[at])) ++at;
      continue;
    }
    for (const VerbPart& part : verb.parts) {
      if (part.name == words[at]) return &part;
    }
    break;
  }
  return nullptr;
}

bool IsNamedBy(const VerbPart& part, std::string_view option) {
  return std::find(part.options.begin(), part.options.end(), option) != part.options.end();
}

}  // namespace

bool TakesOption(const Verb& verb, const VerbPart& part, std::string_view option) {
  return IsNamedBy(part, option) ||
         std::none_of(verb.parts.begin(), verb.parts.end(),
                      [&](const VerbPart& other) { return IsNamedBy(other, option); });
}

namespace {

// "plan, run and merge".
std::string Listed(std::span<const std::string> names, std::string_view lastJoin) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i != 0) text += i + 1 == names.size() ? lastJoin : std::string_view(", ");
    text += names[i];
  }
  return text;
}

const VerbPart& PartNamed(const Verb& verb, const Arguments& arguments) {
  std::vector<std::string> names;
  for (const VerbPart& part : verb.parts) {
    if (!part.isInternal) names.emplace_back(part.name);
  }
  const std::string of = "vorn " + std::string(verb.name);
  if (arguments.Operands().empty()) {
    throw Fault(ExitStatus::kUsage,
                "what to do is missing: " + Listed(names, " or ") + "; see '" + of + " --help'");
  }
  const std::string& name = arguments.Operands().front();
  for (const VerbPart& part : verb.parts) {
    if (part.name == name) return part;
  }
  const std::string meant = DidYouMean(name, names);
  throw Fault(ExitStatus::kUsage,
              "there is no '" + of + " " + Printable(name) + "'" +
                  (meant.empty() ? "; " + Listed(names, " and ") + " are there" : meant));
}

}  // namespace

ExitStatus RunPart(const Verb& verb, const Arguments& arguments) {
  const VerbPart& part = PartNamed(verb, arguments);
  const std::string name = "vorn " + std::string(verb.name) + " " + std::string(part.name);
  for (const Option& option : verb.options) {
    if (!arguments.Has(option.name) || TakesOption(verb, part, option.name)) continue;
    throw Fault(ExitStatus::kUsage, "'" + name + "' takes no --" + std::string(option.name) +
                                        "; see '" + name + " --help'");
  }
  const size_t operands = arguments.Operands().size() - 1;
  if (operands < part.leastOperands || operands > part.mostOperands) {
    const char* wanted = part.mostOperands == 0   ? "nothing"
                         : part.mostOperands == 1 ? "one word"
                                                  : "a word or more";
    throw Fault(ExitStatus::kUsage, "'" + name + "' takes " + wanted + " behind it, and got " +
                                        std::to_string(operands) + "; see '" + name + " --help'");
  }
  return part.run(arguments);
}

std::vector<Option> AllOptions(const Verb& verb) {
  std::vector<Option> options(verb.options.begin(), verb.options.end());
  options.insert(options.end(), std::begin(kCommonOptions), std::end(kCommonOptions));
  return options;
}

Arguments::Arguments(const Verb& verb, std::span<const std::string> words) : verb_(verb) {
  bool areOptionsOver = false;
  for (size_t at = 0; at < words.size(); ++at) {
    const std::string& word = words[at];
    if (areOptionsOver || !IsOption(word)) {
      operands_.push_back(word);
      areOptionsOver = areOptionsOver || verb.runsProgram;
    } else if (word == "--") {
      areOptionsOver = true;
    } else if (word[1] == '-') {
      const size_t equals = word.find('=');
      const std::string name = word.substr(0, equals);
      const auto known = NamesOf(verb);
      if (std::find(known.begin(), known.end(), name) == known.end()) RefuseName(word, name);
      std::optional<std::string> attached;
      if (equals != std::string::npos) attached = word.substr(equals + 1);
      Note(Find(name.substr(2)), attached, words, at);
    } else {
      const std::optional<Option> option = FindLetter(word[1]);
      if (!option) RefuseName(word, word.substr(0, 2));
      std::optional<std::string> attached;
      if (word.size() > 2) attached = word.substr(2);
      Note(*option, attached, words, at);
    }
  }
  if (operands_.size() > verb.mostOperands) {
    RefuseUsage("'" + Printable(operands_[verb.mostOperands]) +
                "' is one word too many; see --help, and put what holds blanks into quotes");
  }
}

Option Arguments::Find(std::string_view name) const {
  for (const Option& option : AllOptions(verb_)) {
    if (option.name == name) return option;
  }
  throw std::logic_error("no option " + std::string(name));
}

std::optional<Option> Arguments::FindLetter(char letter) const {
  for (const Option& option : AllOptions(verb_)) {
    if (option.letter == letter) return option;
  }
  return std::nullopt;
}

void Arguments::RefuseName(std::string_view word, std::string_view name) const {
  const auto names = NamesOf(verb_);
  RefuseUsage("there is no option '" + Printable(word) + "'" + DidYouMean(name, names) +
              "; --help lists them");
}

void Arguments::Note(const Option& option, std::optional<std::string> attached,
                     std::span<const std::string> words, size_t& at) {
  const std::string name = "--" + std::string(option.name);
  if (option.value.empty()) {
    if (attached) RefuseUsage(name + " takes no value, and got '" + Printable(*attached) + "'");
    given_.push_back({option.name, ""});
    return;
  }
  if (!attached) {
    if (at + 1 >= words.size()) {
      RefuseUsage(name + " needs " + std::string(option.value) + " behind it");
    }
    attached = words[++at];
  }
  const auto before = Get(option.name);
  if (before && !option.mayRepeat && *before != *attached) {
    RefuseUsage(name + " is given twice, with '" + Printable(*before) + "' and '" +
                Printable(*attached) + "'; it takes one value");
  }
  given_.push_back({option.name, *attached});
}

bool Arguments::Has(std::string_view name) const { return Get(name).has_value(); }

std::vector<std::string> Arguments::GetAll(std::string_view name) const {
  const Option option = Find(name);
  std::vector<std::string> values;
  for (const Given& given : given_) {
    if (given.name == option.name) values.push_back(given.value);
  }
  return values;
}

std::optional<std::string> Arguments::Get(std::string_view name) const {
  const Option option = Find(name);
  std::optional<std::string> value;
  for (const Given& given : given_) {
    if (given.name == option.name) value = given.value;
  }
  return value;
}

std::string Arguments::Need(std::string_view name) const {
  const auto value = Get(name);
  if (!value) {
    const Option option = Find(name);
    RefuseUsage("--" + std::string(name) + " " + std::string(option.value) +
                " is missing; --help tells more");
  }
  return *value;
}

uint64_t Arguments::GetNumber(std::string_view name, uint64_t otherwise, uint64_t least,
                              uint64_t most) const {
  const auto value = Get(name);
  if (!value) return otherwise;
  uint64_t number = 0;
  const char* end = value->data() + value->size();
  const auto [stop, error] = std::from_chars(value->data(), end, number);
  if (error != std::errc{} || stop != end || number < least || number > most) {
    RefuseUsage("--" + std::string(name) + " takes a whole number from " + std::to_string(least) +
                " to " + std::to_string(most) + ", and got '" + Printable(*value) + "'");
  }
  return number;
}

// A file that is opened must not take the place of a standard stream that is closed, and what is
// printed there has to fail. A program that is run finds the stream closed as it was.
void HoldStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) < 0) (void)open("/dev/null", O_RDONLY | O_CLOEXEC);
  }
}

int RunVerb(const Verb& verb, int argc, char** argv, ExitStatus (*run)(const Arguments&)) {
  HoldStandardStreams();
  // Ignored, as some parents leave it, how a child ended would be told to nobody. A program of the
  // user's finds it as it was.
  if (!verb.runsProgram) (void)std::signal(SIGCHLD, SIG_DFL);
  ExitStatus status = ExitStatus::kOwnFault;
  std::string message;
  try {
    const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
    if (const auto form = AskedHelp(verb, words)) {
      return static_cast<int>(PrintHelp(verb, PartIn(verb, words), *form));
    }
    const Arguments arguments(verb, words);
    status = run(arguments);
    // What was too much for the stream's own room has failed before.
    const bool hasFailed = std::ferror(stdout) != 0;
    errno = 0;
    if (std::fflush(stdout) != 0 || hasFailed) {
      throw Fault(ExitStatus::kLimit, "cannot write to standard output: " +
                                          (errno == 0 ? "it was not taken" : SystemReason(errno)));
    }
    return static_cast<int>(status);
  } catch (const Fault& fault) {
    status = fault.Status();
    message = fault.what();
  } catch (const std::bad_alloc&) {
    status = ExitStatus::kLimit;
    message = "there is no memory left";
  } catch (const std::exception& error) {
    status = ExitStatus::kOwnFault;
    message =
        "a fault of the kit's own, which somebody should hear of: " + std::string(error.what());
  }
  std::fprintf(stderr, "vorn %.*s: %s\n", static_cast<int>(verb.name.size()), verb.name.data(),
               message.c_str());
  const bool isStatusOfItsOwn = static_cast<int>(status) > kFailureBesideProgram;
  return verb.runsProgram && !isStatusOfItsOwn ? kFailureBesideProgram : static_cast<int>(status);
}

}  // namespace vorn::kit
