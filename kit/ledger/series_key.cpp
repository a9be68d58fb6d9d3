#include "kit/ledger/series_key.h"

#include <algorithm>
#include <array>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr KeyPart kSide{"side", "side", &RunEntry::side};

constexpr std::array<KeyPart, 11> kParts{{
    {"model", "model", &RunEntry::model},
    {"model-hash", "modelXxh3", &RunEntry::modelXxh3},
    {"config", "configuration", &RunEntry::configuration},
    {"config-hash", "configurationXxh3", &RunEntry::configurationXxh3},
    {"list", "list", &RunEntry::list},
    {"list-hash", "listXxh3", &RunEntry::listXxh3},
    {"options", "options", &RunEntry::options},
    {"board", "board", &RunEntry::board},
    {"runtime", "runtimeXxh3", &RunEntry::runtimeXxh3},
    {"tool", "tool", &RunEntry::tool},
    {"governor", "governor", &RunEntry::governor},
}};

bool IsHash(const KeyPart& part) { return part.column.ends_with("Xxh3"); }

}  // namespace

std::span<const KeyPart> AllKeyParts() { return kParts; }

std::vector<KeyPart> KeyPartsOf(std::string_view names) {
  std::vector<KeyPart> parts;
  while (true) {
    const std::string_view name = names.substr(0, names.find(','));
    const auto* const found = std::find_if(kParts.begin(), kParts.end(),
                                           [&](const KeyPart& part) { return part.name == name; });
    if (found == kParts.end()) {
      std::vector<std::string> known;
      for (const KeyPart& part : kParts) known.emplace_back(part.name);
      throw Fault(ExitStatus::kUsage, "--by takes parts with commas between them, and '" +
                                          PrintableExcerpt(name) + "' is none" +
                                          DidYouMean(name, known) + "; without it there is --by " +
                                          std::string(kUsualParts));
    }
    parts.push_back(*found);
    if (name.size() == names.size()) break;
    names.remove_prefix(name.size() + 1);
  }
  parts.push_back(kSide);
  return parts;
}

std::vector<std::string> KeyOf(const RunEntry& run, std::span<const KeyPart> parts) {
  std::vector<std::string> key;
  key.reserve(parts.size());
  for (const KeyPart& part : parts) key.push_back(run.*part.member);
  return key;
}

std::string SeriesNameOf(std::span<const std::string> key) {
  std::string all;
  // With its size before it, so that no two keys have one text.
  for (const std::string& value : key) all += std::to_string(value.size()) + ":" + value;
  constexpr size_t kDigits = 8;
  return Xxh3Of(all).substr(0, kDigits);
}

std::string SeriesTextOf(std::span<const std::string> key, std::span<const KeyPart> parts) {
  constexpr size_t kShownDigits = 8;
  std::string text;
  for (size_t i = 0; i < key.size(); ++i) {
    if (key[i].empty()) continue;
    text += text.empty() ? "" : ", ";
    text += IsHash(parts[i]) ? key[i].substr(0, kShownDigits) : key[i];
  }
  return text;
}

}  // namespace vorn::kit
