// A text as the runtime's configuration, and as the settings of a model. It is refused with one
// line that a person can read, or what was read of it is printed by a writer of this file's own and
// read once more, which has to lead to the same.
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "host/common/failure.h"
#include "host/config/config.h"
#include "host/config/model_settings.h"

namespace fuzz {
namespace {

using vorn::host::Config;
using vorn::host::Failure;
using vorn::host::ModelSettings;
using vorn::host::Number;

constexpr size_t kLongestReason = 1000;
constexpr int kDeepest = 16;

/// Brackets that are open at once, outside of strings; of a text that is JSON.
int DeepestNesting(std::string_view text) {
  int depth = 0;
  int deepest = 0;
  bool isInString = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (isInString && c == '\\') ++i;
    if (c == '"') isInString = !isInString;
    if (isInString) continue;
    if (c == '[' || c == '{') deepest = std::max(deepest, ++depth);
    if (c == ']' || c == '}') --depth;
  }
  return deepest;
}

/// What `read` makes of the text; nothing where it refuses it, as it has to.
template <typename Read>
auto Taken(Read read, std::string_view text) -> std::optional<decltype(read(text))> {
  try {
    return read(text);
  } catch (const Failure& e) {
    const std::string_view reason = e.what();
    Require(e.status() == VORN_ERROR_CONFIG, "the status of a refusal");
    Require(!reason.empty() && reason.size() <= kLongestReason, "the length of a reason");
    Require(std::ranges::none_of(reason, [](unsigned char c) { return c < 0x20 || c == 0x7f; }),
            "a reason of one line");
    return std::nullopt;
  }
}

std::string Text(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    char escaped[7];
    std::snprintf(escaped, sizeof(escaped), "\\u%04x", static_cast<unsigned char>(c));
    const bool isPlain = static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
    quoted += isPlain ? std::string(1, c) : escaped;
  }
  return quoted + '"';
}

std::string Text(int64_t number) { return std::to_string(number); }

std::string RealText(double number) {
  char text[40];
  std::snprintf(text, sizeof(text), "%.17e", number);
  return text;
}

std::string Text(const Number& number) {
  if (number.isWhole) return std::to_string(number.whole);
  return RealText(number.real);
}

std::string Text(const vorn::host::Range& range) {
  return "{\"min\":" + RealText(range.min) + ",\"max\":" + RealText(range.max) + '}';
}

template <typename Value>
std::string Text(const std::vector<Value>& values) {
  std::string text;
  for (const Value& value : values) text += (text.empty() ? "" : ",") + Text(value);
  return '[' + text + ']';
}

template <typename Value>
std::string Text(const std::map<std::string, Value>& values) {
  std::string text;
  for (const auto& [name, value] : values) {
    text += (text.empty() ? "" : ",") + Text(name) + ':' + Text(value);
  }
  return '{' + text + '}';
}

std::string RoundText(const ModelSettings& settings) {
  using vorn::host::Rounding;
  if (settings.round == Rounding::kToFloat16) return Text("float16");
  if (settings.round == Rounding::kToBfloat16) return Text("bfloat16");
  const bool isFile = !settings.rangesFile.empty();
  return "{\"int8\":" + (isFile ? Text(settings.rangesFile) : Text(settings.ranges)) +
         (settings.isFused ? "}" : ",\"fuse\":false}");
}

std::string NetTypeText(vorn_net_type type) {
  if (type == VORN_NET_DETECTION) return "detection";
  return type == VORN_NET_RECURRENT ? "recurrent" : "feedForward";
}

std::string TextOf(const ModelSettings& settings) {
  std::string text = "{\"netType\":" + Text(NetTypeText(settings.netType));
  text += ",\"dims\":" + Text(settings.dims);
  text += ",\"inputDims\":" + Text(settings.inputDims);
  text += ",\"outputDims\":" + Text(settings.outputDims);
  text += ",\"constants\":" + Text(settings.constants);
  text += ",\"rpn\":" + Text(settings.rpn);
  text += settings.sequence == vorn::host::Sequence::kSteps ? ",\"sequence\":\"steps\"" : "";
  text += ",\"timeAxis\":" + Text(settings.timeAxis);
  text += ",\"context\":" + Text(settings.context);
  text += ",\"states\":" + Text(settings.states);
  text += ",\"expose\":" + (settings.exposeAll ? "\"all\"" : Text(settings.expose));
  text += ",\"until\":" + Text(settings.until);
  if (settings.round != vorn::host::Rounding::kNone) text += ",\"round\":" + RoundText(settings);
  if (settings.maxFrames != 0) text += ",\"maxFrames\":" + Text(settings.maxFrames);
  if (!settings.frames.empty()) text += ",\"frames\":" + Text(settings.frames);
  if (!settings.flags.empty()) text += ",\"flags\":" + Text(settings.flags);
  if (!settings.length.empty()) text += ",\"length\":" + Text(settings.length);
  return text + '}';
}

std::string TextOf(const Config& config) {
  static constexpr const char* kLevels[] = {"none", "basic", "extended", "all"};
  const bool isNative = config.outputTypes == vorn::host::OutputTypes::kNative;
  std::string text = "{\"threads\":" + Text(config.threads);
  text += ",\"rowAlignment\":" + Text(static_cast<int64_t>(config.rowAlignment));
  text += ",\"devices\":" + Text(config.devices);
  text += ",\"graphOptimization\":" + Text(kLevels[static_cast<int>(config.graphOptimization)]);
  text += ",\"dims\":" + Text(config.dims);
  text += ",\"outputTypes\":" + Text(isNative ? "native" : "presented");
  text += ",\"model\":" + config.model;
  if (config.probeSeconds != 0) text += ",\"probe\":" + Text(int64_t{config.probeSeconds});
  if (config.memoryLimit) {
    text += ",\"memoryLimit\":" + Text(static_cast<int64_t>(*config.memoryLimit));
  }
  return text + '}';
}

ModelSettings ReadSettings(std::string_view text) { return vorn::host::ParseModelSettings(text); }

/// Reads the text; what is read has to be printable, and to be read out of that again.
template <typename Read>
void CheckReading(Read read, std::string_view text) {
  const auto taken = Taken(read, text);
  if (!taken) return;
  Require(text.find('\0') == std::string_view::npos, "a zero byte is taken");
  Require(DeepestNesting(text) <= kDeepest, "what is nested deeper is taken");
  const auto again = Taken(read, TextOf(*taken));
  Require(again.has_value(), "what was read is refused once it is printed");
  Require(*again == *taken, "what was read changes with its print");
}

}  // namespace

void Configuration(std::span<const uint8_t> bytes) {
  // In memory of its own size, so that reading beyond it is seen.
  const std::vector<char> memory(bytes.begin(), bytes.end());
  const std::string_view text(memory.data(), memory.size());
  CheckReading(vorn::host::ParseConfig, text);
  CheckReading(ReadSettings, text);
}

}  // namespace fuzz
