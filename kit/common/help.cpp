// A verb's table as text, as Markdown, in the language of man, and as bare names.
#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "kit/common/command_line.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr size_t kLineWidth = 80;
constexpr size_t kHelpColumn = 26;  // where the sentences begin

std::string HowToGive(const Option& option) {
  std::string text = option.letter == 0 ? "    " : std::string("-") + option.letter + ", ";
  text += "--" + std::string(option.name);
  if (!option.value.empty()) text += " " + std::string(option.value);
  return text;
}

// The words of a sentence in lines that begin at a column; the first one is there already.
std::string Wrapped(std::string_view sentence, size_t column) {
  std::string text;
  size_t at = column;
  while (!sentence.empty()) {
    const std::string_view word = sentence.substr(0, sentence.find(' '));
    sentence.remove_prefix(std::min(sentence.size(), word.size() + 1));
    if (at != column && at + 1 + word.size() > kLineWidth) {
      text += "\n" + std::string(column, ' ');
      at = column;
    } else if (at != column) {
      text += ' ';
      ++at;
    }
    text += word;
    at += word.size();
  }
  return text;
}

// roff takes a leading dot or quote for a request, and a backslash for an escape.
std::string ForRoff(std::string_view text) {
  std::string escaped;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool isAtStart = i == 0 || text[i - 1] == '\n';
    if (isAtStart && (text[i] == '.' || text[i] == '\'')) escaped += "\\&";
    if (text[i] == '\\') {
      escaped += "\\e";
    } else if (text[i] == '-') {
      escaped += "\\-";
    } else {
      escaped += text[i];
    }
  }
  return escaped;
}

std::vector<Option> ShownOptions(const Verb& verb) {
  std::vector<Option> options = AllOptions(verb);
  std::erase_if(options, [](const Option& option) { return option.isInternal; });
  return options;
}

std::string FormLines(const std::string& name, std::span<const std::string_view> forms) {
  std::string text;
  for (const std::string_view form : forms) text += "  " + name + " " + std::string(form) + "\n";
  return text;
}

std::string OptionLines(const std::vector<Option>& options) {
  std::string text;
  for (const Option& option : options) {
    std::string line = "  " + HowToGive(option);
    if (line.size() + 2 > kHelpColumn) {
      text += line + "\n";
      line.clear();
    }
    line.resize(kHelpColumn, ' ');
    text += line + Wrapped(option.help, kHelpColumn) + "\n";
  }
  return text;
}

}  // namespace

std::string HelpText(const Verb& verb) {
  const std::string name = "vorn " + std::string(verb.name);
  return name + ": " + std::string(verb.summary) + "\n\n" + FormLines(name, verb.forms) + "\n" +
         std::string(verb.about) + "\n\n" + OptionLines(ShownOptions(verb)) +
         "\nFor example:\n\n  " + std::string(verb.example) + "\n";
}

std::string HelpText(const Verb& verb, const VerbPart& part) {
  const std::string name = "vorn " + std::string(verb.name);
  std::vector<std::string_view> forms;
  for (const std::string_view form : verb.forms) {
    if (form.substr(0, form.find(' ')) == part.name) forms.push_back(form);
  }
  std::vector<Option> options = ShownOptions(verb);
  std::erase_if(options,
                [&](const Option& option) { return !TakesOption(verb, part, option.name); });
  return name + " " + std::string(part.name) + "\n\n" + FormLines(name, forms) + "\n" +
         std::string(part.about) + "\n\n" + OptionLines(options) + "\n'" + name +
         " --help' tells of the rest.\n";
}

std::string HelpPage(const Verb& verb) {
  const std::string name = "vorn " + std::string(verb.name);
  std::string text = "# " + name + "\n\n" + std::string(verb.summary) + "\n\n```text\n";
  for (const std::string_view form : verb.forms) text += name + " " + std::string(form) + "\n";
  text += "```\n\n" + std::string(verb.about) + "\n\n| Option | What it is |\n|---|---|\n";
  for (const Option& option : ShownOptions(verb)) {
    std::string give = HowToGive(option);
    give.erase(0, give.find_first_not_of(' '));
    text += "| `" + give + "` | " + std::string(option.help) + " |\n";
  }
  return text + "\nFor example:\n\n```sh\n" + std::string(verb.example) + "\n```\n";
}

std::string ManualPage(const Verb& verb) {
  const std::string name = "vorn-" + std::string(verb.name);
  std::string text = ".TH " + ForRoff(name) + " 1\n.SH NAME\n" + ForRoff(name) + " \\- " +
                     ForRoff(verb.summary) + "\n.SH SYNOPSIS\n.nf\n";
  for (const std::string_view form : verb.forms) {
    text += "vorn " + ForRoff(verb.name) + " " + ForRoff(form) + "\n";
  }
  text += ".fi\n.SH DESCRIPTION\n" + ForRoff(verb.about) + "\n.SH OPTIONS\n";
  for (const Option& option : ShownOptions(verb)) {
    std::string give = HowToGive(option);
    give.erase(0, give.find_first_not_of(' '));
    text += ".TP\n.B " + ForRoff(give) + "\n" + ForRoff(option.help) + "\n";
  }
  return text + ".SH EXAMPLES\n.nf\n" + ForRoff(verb.example) + "\n.fi\n";
}

std::string OptionNames(const Verb& verb) {
  std::string text;
  for (const Option& option : ShownOptions(verb)) {
    text += "--" + std::string(option.name) + "\n";
    if (option.letter != 0) text += std::string("-") + option.letter + "\n";
  }
  return text;
}

}  // namespace vorn::kit
