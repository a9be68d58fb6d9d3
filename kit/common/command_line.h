// The command line of a verb. One table says what it takes; parser, help, manual page, reference
// and completion are made of it.
#ifndef VORN_KIT_COMMON_COMMAND_LINE_H_
#define VORN_KIT_COMMON_COMMAND_LINE_H_

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/fault.h"

namespace vorn::kit {

// A table reads best in this order, whatever room it takes.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding)
struct Option {
  std::string_view name;    ///< without the dashes: "model"
  char letter = 0;          ///< 0: none
  std::string_view value;   ///< what it takes, as help names it: "FILE"; empty: nothing
  std::string_view help;    ///< one sentence or two
  bool mayRepeat = false;   ///< given several times, it has several values
  bool isInternal = false;  ///< for programs of ours that call each other: no help tells of it
};

class Arguments;

/// One of the things that a verb does, named by its first operand: `vorn fleet plan`.
struct VerbPart {
  std::string_view name;                      ///< "plan"; its forms begin with it
  std::string_view about;                     ///< lines of at most 80 characters
  std::span<const std::string_view> options;  ///< by name; one that no part names is of all
  ExitStatus (*run)(const Arguments& arguments) = nullptr;
  bool isInternal = false;  ///< as of an option
  /// Words behind the name; a part that says nothing here looks at them itself.
  size_t leastOperands = 0;
  size_t mostOperands = std::numeric_limits<size_t>::max();
};

struct Verb {
  std::string_view name;                    ///< "inspect"
  std::string_view summary;                 ///< half a sentence, as a list of verbs shows it
  std::span<const std::string_view> forms;  ///< what may stand behind the name, a line each
  std::string_view about;                   ///< paragraphs, lines of at most 80 characters
  std::span<const Option> options;
  std::string_view example;  ///< a command line that works in a checkout that was built
  size_t mostOperands = 0;
  std::span<const VerbPart> parts = {};  ///< empty: the verb does one thing

  /// For a verb that runs a program of the user's: the first operand is the program, all behind it
  /// are its words, and what the verb itself fails in has status 125, as with env.
  bool runsProgram = false;
};

/// What a command line gave. Only options of the verb's table can be asked for.
class Arguments {
 public:
  /// Options as `--name VALUE`, `--name=VALUE`, `-n VALUE`, `-nVALUE`; `--` ends them. Throws a
  /// Fault of kUsage that names what was wrong, and the nearest option; also for an option that has
  /// two values and takes one.
  Arguments(const Verb& verb, std::span<const std::string> words);

  [[nodiscard]] bool Has(std::string_view name) const;

  /// Of an option that may be repeated the last value.
  [[nodiscard]] std::optional<std::string> Get(std::string_view name) const;

  /// Of an option that may be repeated all values, in their order.
  [[nodiscard]] std::vector<std::string> GetAll(std::string_view name) const;

  /// Throws a Fault of kUsage that names the option if it was not given.
  [[nodiscard]] std::string Need(std::string_view name) const;

  /// A whole number of `least` to `most`, `otherwise` if it was not given. Throws as above.
  [[nodiscard]] uint64_t GetNumber(std::string_view name, uint64_t otherwise, uint64_t least,
                                   uint64_t most) const;

  [[nodiscard]] std::span<const std::string> Operands() const { return operands_; }

 private:
  struct Given {
    std::string_view name;
    std::string value;
  };

  Option Find(std::string_view name) const;
  std::optional<Option> FindLetter(char letter) const;
  [[noreturn]] void RefuseName(std::string_view word, std::string_view name) const;
  void Note(const Option& option, std::optional<std::string> attached,
            std::span<const std::string> words, size_t& at);

  const Verb& verb_;
  std::vector<Given> given_;
  std::vector<std::string> operands_;
};

/// What a verb takes: its own options, then those of every verb.
[[nodiscard]] std::vector<Option> AllOptions(const Verb& verb);

/// Whether a part takes an option of the verb's table.
[[nodiscard]] bool TakesOption(const Verb& verb, const VerbPart& part, std::string_view option);

/// Runs the part that the first operand names. Throws a Fault of kUsage where there is none, or it
/// takes no such options or not so many operands.
[[nodiscard]] ExitStatus RunPart(const Verb& verb, const Arguments& arguments);

/// As `--help` prints it. All of these tell of no internal part or option.
[[nodiscard]] std::string HelpText(const Verb& verb);

/// The same of a part alone.
[[nodiscard]] std::string HelpText(const Verb& verb, const VerbPart& part);

/// The same as a page of Markdown.
[[nodiscard]] std::string HelpPage(const Verb& verb);

/// The same as a manual page, for `man`.
[[nodiscard]] std::string ManualPage(const Verb& verb);

/// The options, a line each as a person would type it, for completion.
[[nodiscard]] std::string OptionNames(const Verb& verb);

/// The body of a verb's `main`: reads the command line, answers `--help` by itself, and runs the
/// verb. What it throws becomes one line "vorn VERB: …" on standard error, and its status.
int RunVerb(const Verb& verb, int argc, char** argv, ExitStatus (*run)(const Arguments&));

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_COMMAND_LINE_H_
