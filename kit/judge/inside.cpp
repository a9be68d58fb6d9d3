#include "kit/judge/inside.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <map>
#include <set>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/judge/rules.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostConfigurationBytes = 16 << 20;
constexpr size_t kMostLogBytes = 16 << 20;
constexpr size_t kMostUnpairedShown = 10;

// 20 · log10(2^25): the last bit of a float32 is that far below its value.
constexpr double kMostSnr = 150.5;

// What the program said on standard error. A run of another hand need not have kept it.
std::string LogOf(const std::string& run) {
  try {
    return ReadWholeFile(run + "/" + kErrorsFile, "the log", ExitStatus::kInput, kMostLogBytes);
  } catch (const Fault&) {
  }
  try {
    return ReadRun(run).standardError;
  } catch (const Fault&) {
    return "";
  }
}

// The configuration of a run, while it is the same file.
std::optional<Json> ConfigurationOf(const std::string& run) {
  try {
    const RunFacts facts = ReadRun(run);
    if (!facts.configuration) return std::nullopt;
    const std::string& path = facts.configuration->path;
    const std::string text =
        ReadWholeFile(path, "the configuration", ExitStatus::kInput, kMostConfigurationBytes);
    if (facts.configuration->xxh3 != Xxh3Of(text)) return std::nullopt;
    return ParseJson(text);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

// How many of the names a configuration exposes by their names.
std::optional<uint64_t> ExposedBy(const Json& configuration,
                                  const std::vector<std::string>& names) {
  const Json* model = configuration.IsObject() ? configuration.Find("model") : nullptr;
  const Json* expose = model != nullptr && model->IsObject() ? model->Find("expose") : nullptr;
  if (expose == nullptr) return 0;
  if (!expose->IsArray()) return std::nullopt;
  std::set<std::string> wanted;
  for (const Json& name : expose->Items()) {
    if (name.IsText()) wanted.insert(SpelledAsDump(name.AsText()));
  }
  // Those at the end, since an own output may be named, too, and stays where it is.
  uint64_t count = 0;
  while (count < names.size() && wanted.contains(names[names.size() - 1 - count])) ++count;
  return count;
}

// Of several outputs with one name the second has "#1" behind it, as dumps are told apart.
std::vector<std::string> NamesOfOutputs(const ModelDescription& model) {
  std::map<std::string, uint64_t> seen;
  std::vector<std::string> names;
  for (const TensorDescription& output : model.outputs) {
    std::string name = SpelledAsDump(output.name.empty() ? "output" : output.name);
    const uint64_t number = seen[name]++;
    if (number > 0) name += "#" + std::to_string(number);
    names.push_back(std::move(name));
  }
  return names;
}

std::string StateText(InsideState state) {
  switch (state) {
    case InsideState::kRight:
      return "right";
    case InsideState::kWrong:
      return "WRONG";
    case InsideState::kNotJudged:
      break;
  }
  return "not judged";
}

std::string_view StateName(InsideState state) {
  switch (state) {
    case InsideState::kRight:
      return "right";
    case InsideState::kWrong:
      return "wrong";
    case InsideState::kNotJudged:
      break;
  }
  return "notJudged";
}

bool IsMeasured(const InsideTensor& tensor) { return tensor.census.finite > 0; }

std::string SnrText(const InsideTensor& tensor) {
  if (!IsMeasured(tensor)) return "-";
  const double snr = tensor.census.Snr();
  return snr == INFINITY ? "equal" : NumberText(std::round(snr * 10) / 10);
}

std::string Table(const Inside& inside) {
  TextTable table({{"tensor", true},
                   {"name", false},
                   {"verdict", false},
                   {"max abs", true},
                   {"relative RMSE", true},
                   {"SNR dB", true},
                   {"outside", true}});
  for (size_t i = 0; i < inside.tensors.size(); ++i) {
    const InsideTensor& tensor = inside.tensors[i];
    const bool isCounted = tensor.census.elements > 0;
    table.Add({std::to_string(i + 1), tensor.name, StateText(tensor.state),
               IsMeasured(tensor) ? NumberText(tensor.census.maxAbs) : "-",
               IsMeasured(tensor) ? ShareText(tensor.RelativeRmse()) : "-", SnrText(tensor),
               isCounted ? ShareText(tensor.OutsideShare()) : "-"});
  }
  return table.Text();
}

std::string UnpairedText(const Inside& inside) {
  std::string text;
  for (const bool isActual : {true, false}) {
    std::vector<std::string> names;
    for (const UnpairedOutput& output : inside.unpaired) {
      if (output.isActual == isActual) names.push_back(output.name);
    }
    if (names.empty()) continue;
    text += std::string("on the ") + (isActual ? "actual" : "expected") + " side only: ";
    for (size_t i = 0; i < std::min(names.size(), kMostUnpairedShown); ++i) {
      text += (i == 0 ? "" : ", ") + Printable(names[i]);
    }
    if (names.size() > kMostUnpairedShown) {
      text += " and " + std::to_string(names.size() - kMostUnpairedShown) + " more";
    }
    text += "\n";
  }
  return text;
}

std::string BeginText(const Inside& inside, size_t at) {
  return Quoted(inside.tensors[at].name) + " (tensor " + std::to_string(at + 1) + " of " +
         std::to_string(inside.tensors.size()) + ")";
}

// What is known of the tensors before the first wrong one.
std::string BeforeText(const Inside& inside, size_t begin) {
  if (begin == 0) return ", the first one";
  const auto notJudged = std::count_if(
      inside.tensors.begin(), inside.tensors.begin() + static_cast<std::ptrdiff_t>(begin),
      [](const InsideTensor& one) { return one.state == InsideState::kNotJudged; });
  if (notJudged == 0) {
    return begin == 1 ? ": the tensor before it is right" : ": the tensors before it are right";
  }
  return ": of " + Counted(begin, "tensor") + " before it " + std::to_string(notJudged) +
         (notJudged == 1 ? " is" : " are") + " not judged, and the others are right";
}

std::string BeginText(const Inside& inside) {
  const auto begin = inside.Begin();
  if (!begin) {
    const bool isAnyRight =
        std::any_of(inside.tensors.begin(), inside.tensors.end(),
                    [](const InsideTensor& one) { return one.state == InsideState::kRight; });
    return isAnyRight ? "no tensor that was compared is outside its tolerance\n"
                      : "nothing was compared\n";
  }
  std::string text =
      "the difference begins at " + BeginText(inside, *begin) + BeforeText(inside, *begin);
  const auto greatest = inside.Greatest();
  if (!greatest) return text + "\n";
  text += "; its relative RMSE is " + ShareText(inside.tensors[*begin].RelativeRmse());
  if (*greatest == *begin) return text + ", and nowhere behind it more\n";
  return text + ", and it grows to " + ShareText(inside.tensors[*greatest].RelativeRmse()) +
         " at " + Quoted(inside.tensors[*greatest].name) + "\n";
}

std::string StepText(const Inside& inside) {
  const auto step = inside.LargestStep();
  if (!step) return "";
  const auto told = [](const InsideTensor& tensor) {
    const std::string snr = SnrText(tensor);
    return snr == "equal" ? "no difference" : snr + " dB";
  };
  return "the largest step is at " + Quoted(inside.tensors[step->at].name) + ": SNR " +
         told(inside.tensors[step->before]) + " -> " + told(inside.tensors[step->at]) +
         ", behind " + Quoted(inside.tensors[step->before].name) + "\n";
}

Json TensorJson(const InsideTensor& tensor) {
  return Json::Object({{"name", tensor.name},
                       {"verdict", StateName(tensor.state)},
                       {"maxAbs", IsMeasured(tensor) ? tensor.census.maxAbs : NAN},
                       {"relativeRmse", tensor.RelativeRmse()},
                       {"snrDb", tensor.census.Snr()},
                       {"outsideShare", tensor.OutsideShare()}});
}

}  // namespace

std::optional<uint64_t> ExposedIn(std::string_view log) {
  constexpr std::string_view kBefore = "exposed ";
  constexpr std::string_view kBehind = " tensor";
  for (size_t end = log.size(); end > 0;) {
    const size_t before = log.rfind('\n', end - 1);
    const size_t start = before == std::string_view::npos ? 0 : before + 1;
    const std::string_view line = log.substr(start, end - start);
    end = start == 0 ? 0 : start - 1;
    const size_t at = line.find(kBefore);
    if (!line.starts_with("vorn: vorn_mdl_load") || at == std::string_view::npos) continue;
    const char* first = line.data() + at + kBefore.size();
    const char* last = line.data() + line.size();
    uint64_t count = 0;
    const auto [stop, error] = std::from_chars(first, last, count);
    const std::string_view rest(stop, static_cast<size_t>(last - stop));
    if (error == std::errc{} && rest.starts_with(kBehind)) return count;
  }
  return std::nullopt;
}

std::string PrecisionIn(std::string_view log) {
  constexpr std::string_view kRounded = "rounded ";
  constexpr std::string_view kTo = " to ";
  constexpr std::string_view kInName = "abcdefghijklmnopqrstuvwxyz0123456789";
  const size_t rounded = log.rfind(kRounded);
  if (rounded == std::string_view::npos) return "";
  const std::string_view rest = log.substr(rounded, log.find_first_of(";\n", rounded) - rounded);
  const size_t to = rest.rfind(kTo);
  if (to == std::string_view::npos) return "";
  const std::string_view name = rest.substr(to + kTo.size());
  return std::string(name.substr(0, name.find_first_not_of(kInName)));
}

std::string PrecisionOf(const TensorSource& source) {
  return source.isRun ? PrecisionIn(LogOf(source.path)) : "";
}

std::optional<GraphOrder> GraphOrderOf(const TensorSource& source) {
  if (!source.model || source.model->outputs.empty()) return std::nullopt;
  GraphOrder order;
  order.names = NamesOfOutputs(*source.model);
  std::optional<uint64_t> exposed = ExposedIn(LogOf(source.path));
  if (!exposed) {
    if (const auto configuration = ConfigurationOf(source.path)) {
      exposed = ExposedBy(*configuration, order.names);
    }
  }
  if (!exposed || *exposed == 0 || *exposed > order.names.size()) return order;
  order.isTold = true;
  std::rotate(order.names.begin(), order.names.end() - static_cast<std::ptrdiff_t>(*exposed),
              order.names.end());
  return order;
}

double InsideTensor::RelativeRmse() const {
  if (census.finite == 0) return NAN;
  if (census.sumSquares == 0) return 0;
  return std::sqrt(census.sumSquares / census.sumExpectedSquares);
}

double InsideTensor::CappedSnr() const {
  return std::max(-kMostSnr, std::min(census.Snr(), kMostSnr));
}

double InsideTensor::OutsideShare() const {
  if (census.elements == 0) return NAN;
  return static_cast<double>(census.outside) / static_cast<double>(census.elements);
}

std::optional<size_t> Inside::Begin() const {
  for (size_t i = 0; i < tensors.size(); ++i) {
    if (tensors[i].state == InsideState::kWrong) return i;
  }
  return std::nullopt;
}

std::optional<size_t> Inside::Greatest() const {
  const auto begin = Begin();
  if (!begin || !IsMeasured(tensors[*begin])) return std::nullopt;
  size_t greatest = *begin;
  for (size_t i = *begin + 1; i < tensors.size(); ++i) {
    if (tensors[i].RelativeRmse() > tensors[greatest].RelativeRmse()) greatest = i;
  }
  return greatest;
}

std::optional<Inside::Step> Inside::LargestStep() const {
  std::optional<Step> largest;
  std::optional<size_t> before;
  double most = 0;
  for (size_t i = 0; i < tensors.size(); ++i) {
    if (!IsMeasured(tensors[i])) continue;
    const double fall = before ? tensors[*before].CappedSnr() - tensors[i].CappedSnr() : 0;
    if (fall > most) {
      most = fall;
      largest = Step{*before, i};
    }
    before = i;
  }
  return largest;
}

std::string ShareText(double share) {
  if (std::isnan(share)) return "-";
  if (std::isinf(share)) return "infinite";
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.3g", share * 100);
  return std::string(text.data()) + " %";
}

std::string InsideText(const Inside& inside) {
  std::string text = Table(inside);
  if (!inside.unpaired.empty()) text += "\n" + UnpairedText(inside);
  return text + "\n" + BeginText(inside) + StepText(inside) + "the order is " + inside.order + "\n";
}

Json InsideJson(const Inside& inside) {
  Json tensors = Json::Array();
  for (const InsideTensor& tensor : inside.tensors) tensors.Append(TensorJson(tensor));
  Json unpaired = Json::Array();
  for (const UnpairedOutput& output : inside.unpaired) {
    unpaired.Append(
        Json::Object({{"name", output.name}, {"side", output.isActual ? "actual" : "expected"}}));
  }
  Json json = Json::Object({{"order", inside.order}, {"tensors", tensors}});
  const auto name = [&](size_t at) { return Json(inside.tensors[at].name); };
  if (const auto begin = inside.Begin()) {
    json.Set("begin", Json::Object({{"name", name(*begin)}, {"place", *begin}}));
  }
  if (const auto greatest = inside.Greatest()) {
    json.Set("greatest", Json::Object({{"name", name(*greatest)}, {"place", *greatest}}));
  }
  if (const auto step = inside.LargestStep()) {
    json.Set("largestStep",
             Json::Object({{"name", name(step->at)},
                           {"place", step->at},
                           {"behind", name(step->before)},
                           {"snrDbBehind", inside.tensors[step->before].census.Snr()},
                           {"snrDb", inside.tensors[step->at].census.Snr()}}));
  }
  json.Set("unpaired", unpaired);
  return json;
}

}  // namespace vorn::kit
