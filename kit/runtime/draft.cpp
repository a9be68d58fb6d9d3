#include "kit/runtime/draft.h"

#include <array>

namespace vorn::kit {
namespace {

// Keys of a model. The first one that is named will do.
constexpr std::array<const char*, 3> kKeys{"dims", "inputDims", "outputDims"};

// The object that begins at `start`, braces and strings counted. Empty where it does not end.
std::string ObjectAt(const std::string& text, size_t start) {
  int depth = 0;
  bool isInString = false;
  for (size_t i = start; i < text.size(); ++i) {
    if (isInString) {
      if (text[i] == '\\') {
        ++i;
      } else if (text[i] == '"') {
        isInString = false;
      }
    } else if (text[i] == '"') {
      isInString = true;
    } else if (text[i] == '{') {
      ++depth;
    } else if (text[i] == '}' && --depth == 0) {
      return text.substr(start, i + 1 - start);
    }
  }
  return {};
}

// With a number for each N outside of strings.
std::string WithNumbers(const std::string& object) {
  std::string text;
  bool isInString = false;
  for (size_t i = 0; i < object.size(); ++i) {
    text += !isInString && object[i] == 'N' ? '1' : object[i];
    if (isInString && object[i] == '\\' && i + 1 < object.size()) {
      text += object[++i];
    } else if (object[i] == '"') {
      isInString = !isInString;
    }
  }
  return text;
}

}  // namespace

std::optional<std::string> DraftConfiguration(const std::string& refusal) {
  for (const char* key : kKeys) {
    const std::string named = "'" + std::string(key) + "' {";
    const size_t at = refusal.find(named);
    if (at == std::string::npos) continue;
    const std::string object = ObjectAt(refusal, at + named.size() - 1);
    if (object.empty()) continue;
    return "{\"model\": {\"" + std::string(key) + "\": " + WithNumbers(object) + "}}";
  }
  return std::nullopt;
}

}  // namespace vorn::kit
