// Reading the command line.
#include "options.h"

#include <charconv>
#include <map>

namespace conformance {
namespace {

template <typename Number>
bool ReadNumber(const std::string& word, Number& number) {
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  return error == std::errc() && end == word.data() + word.size();
}

/// Whether `value` could be read for the option `name`; false for one that is not known, too.
bool ReadValue(const std::string& name, const std::string& value, Options& options) {
  const std::map<std::string, std::string*> texts = {{"--runtime", &options.runtime},
                                                     {"--config", &options.config},
                                                     {"--model", &options.model},
                                                     {"--detection-model", &options.detectionModel},
                                                     {"--recurrent-model", &options.recurrentModel},
                                                     {"--answers", &options.answers}};
  if (const auto text = texts.find(name); text != texts.end()) {
    *text->second = value;
    return true;
  }
  if (name == "--device") return ReadNumber(value, options.device);
  if (name == "--batch") return ReadNumber(value, options.batch) && options.batch != 0;
  if (name == "--rpn-inputs") return ReadNumber(value, options.rpnInputs);
  if (name == "--tolerance") return ReadNumber(value, options.tolerance);
  if (name == "--seconds") {
    return ReadNumber(value, options.seconds.emplace()) && options.seconds != 0;
  }
  return false;
}

}  // namespace

Options& Given() {
  static Options options;
  return options;
}

std::string ReadOptions(const std::vector<std::string>& words, Options& options) {
  const std::map<std::string, bool*> switches = {{"--trusting", &options.trusting},
                                                 {"--named-statuses", &options.namedStatuses},
                                                 {"--no-skips", &options.noSkips},
                                                 {"--in-process", &options.inProcess}};
  for (size_t i = 0; i < words.size(); ++i) {
    if (const auto found = switches.find(words[i]); found != switches.end()) {
      *found->second = true;
    } else if (i + 1 == words.size() || !ReadValue(words[i], words[i + 1], options)) {
      return "'" + words[i] + "' is no option, or lacks its value";
    } else {
      ++i;
    }
  }
  return options.config.empty() ? "--config is missing" : "";
}

}  // namespace conformance
