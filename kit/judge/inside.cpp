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
#include "kit/run/output_names.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostConfigurationBytes = 16 << 20;
constexpr size_t kMostUnpairedShown = 10;

// A table of more rows is folded to what a screen holds.
constexpr size_t kMostRows = 40;
constexpr size_t kFirstRows = 3;
constexpr size_t kNeighbours = 2;
constexpr size_t kStepsShown = 5;
constexpr size_t kMostOwnShown = 8;

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

std::string SnrText(const Census& census) {
  if (census.finite == 0) return "-";
  const double snr = census.Snr();
  return snr == INFINITY ? "equal" : NumberText(RoundedTo(snr, 0.1));
}

bool IsHeldAgainstFloor(const InsideTensor& tensor) {
  return tensor.floor && tensor.floor->actual.finite > 0 && tensor.floor->floor.finite > 0;
}

double TimesOf(const InsideTensor& tensor) {
  return IsHeldAgainstFloor(tensor) ? TimesFloor(tensor.floor->actual, tensor.floor->floor) : NAN;
}

std::string TimesCell(double times) {
  if (std::isnan(times)) return "-";
  return std::isinf(times) ? "infinite" : NumberText(RoundedTo(times, 0.01));
}

FloorAnswer AnswerOf(const Inside& inside, const InsideTensor& tensor) {
  return tensor.floor ? tensor.floor->Answer(inside.floor->most) : FloorAnswer::kNotMeasured;
}

// What grows along the graph, in dB; empty where it cannot be measured.
std::optional<double> LevelOf(const Inside& inside, const InsideTensor& tensor) {
  if (inside.floor) {
    return IsHeldAgainstFloor(tensor) ? std::optional(DecibelsBelow(*tensor.floor)) : std::nullopt;
  }
  return IsMeasured(tensor) ? std::optional(-tensor.census.CappedSnr()) : std::nullopt;
}

// ---- The table ----------------------------------------------------------------------------------

// The places that are shown, ascending.
std::set<size_t> ShownRows(const Inside& inside, bool areAllWanted) {
  const size_t count = inside.tensors.size();
  std::set<size_t> shown;
  const auto show = [&](size_t first, size_t end) {
    for (size_t i = first; i < std::min(end, count); ++i) shown.insert(i);
  };
  if (areAllWanted || count <= kMostRows) {
    show(0, count);
    return shown;
  }
  show(0, kFirstRows);
  if (const auto begin = inside.Begin()) {
    show(*begin - std::min(*begin, kNeighbours), *begin + kNeighbours + 1);
  }
  if (const auto greatest = inside.Greatest()) shown.insert(*greatest);
  const auto steps = inside.Steps();
  for (size_t i = 0; i < std::min(steps.size(), kStepsShown); ++i) {
    shown.insert({steps[i].before, steps[i].at});
  }
  const size_t own = std::min(inside.ownOutputs == 0 ? kFirstRows : inside.ownOutputs, count);
  show(count - own, count - own + kMostOwnShown);
  return shown;
}

TextTable EmptyTable(const Inside& inside) {
  std::vector<TextTable::Column> columns{{"tensor", true}, {"name", false}, {"verdict", false}};
  if (inside.floor) columns.push_back({"floor", false});
  columns.insert(columns.end(), {{"max abs", true}, {"relative RMSE", true}, {"SNR dB", true}});
  if (inside.floor) columns.insert(columns.end(), {{"floor's SNR dB", true}, {"times", true}});
  columns.push_back({"outside", true});
  return TextTable(std::move(columns));
}

std::string FloorWord(FloorAnswer answer) {
  return answer == FloorAnswer::kNotMeasured ? "-" : std::string(AnswerName(answer));
}

std::vector<std::string> RowOf(const Inside& inside, size_t place) {
  const InsideTensor& tensor = inside.tensors[place];
  std::vector<std::string> row{std::to_string(place + 1), tensor.name, StateText(tensor.state)};
  if (inside.floor) row.push_back(FloorWord(AnswerOf(inside, tensor)));
  const bool isMeasured = IsMeasured(tensor);
  row.push_back(isMeasured ? NumberText(tensor.census.maxAbs) : "-");
  row.push_back(isMeasured ? ShareText(tensor.RelativeRmse()) : "-");
  row.push_back(SnrText(tensor.census));
  if (inside.floor) {
    row.push_back(tensor.floor ? SnrText(tensor.floor->floor) : "-");
    row.push_back(TimesCell(TimesOf(tensor)));
  }
  row.push_back(tensor.census.elements > 0 ? ShareText(tensor.OutsideShare()) : "-");
  return row;
}

std::string Table(const Inside& inside, bool areAllWanted) {
  const std::set<size_t> shown = ShownRows(inside, areAllWanted);
  TextTable table = EmptyTable(inside);
  size_t next = 0;
  const auto leaveOut = [&](size_t end) {
    if (end > next) table.Add({"", "... " + std::to_string(end - next) + " more"});
  };
  for (const size_t place : shown) {
    leaveOut(place);
    table.Add(RowOf(inside, place));
    next = place + 1;
  }
  leaveOut(inside.tensors.size());
  const size_t folded = inside.tensors.size() - shown.size();
  if (folded == 0) return table.Text();
  return table.Text() + "\n" + std::to_string(folded) + " of " +
         Counted(inside.tensors.size(), "tensor") +
         " are not shown; --all shows them, and verdict.json has them\n";
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

std::string BeginByRules(const Inside& inside) {
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

std::string PrecisionText(const Inside& inside) {
  return inside.floor->precision.empty() ? "the floor" : Printable(inside.floor->precision);
}

// What is known of the tensors before the first that is worse.
std::string BeforeByFloor(const Inside& inside, size_t begin) {
  if (begin == 0) return ", the first one";
  const auto unknown = std::count_if(
      inside.tensors.begin(), inside.tensors.begin() + static_cast<std::ptrdiff_t>(begin),
      [&](const InsideTensor& one) { return AnswerOf(inside, one) == FloorAnswer::kNotMeasured; });
  const std::string within = "within " + NumberText(inside.floor->most) + " times the floor's RMSE";
  if (unknown == 0) {
    return (begin == 1 ? ": the tensor before it is " : ": the tensors before it are ") + within;
  }
  return ": of " + Counted(begin, "tensor") + " before it " + std::to_string(unknown) +
         " could not be held against the floor, and the others are " + within;
}

std::string BeginByFloor(const Inside& inside) {
  const auto begin = inside.Begin();
  if (!begin) {
    const bool isAny = std::any_of(inside.tensors.begin(), inside.tensors.end(),
                                   [](const InsideTensor& one) { return IsHeldAgainstFloor(one); });
    return isAny ? "no tensor is worse than " + PrecisionText(inside) + " has to be\n"
                 : "nothing could be held against the floor\n";
  }
  std::string text = "what is worse than " + PrecisionText(inside) + " has to be begins at " +
                     BeginText(inside, *begin) + BeforeByFloor(inside, *begin);
  const auto greatest = inside.Greatest();
  if (!greatest) return text + "\n";
  text +=
      "; its RMSE is " + TimesCell(TimesOf(inside.tensors[*begin])) + " times that of the floor";
  if (*greatest == *begin) return text + ", and nowhere behind it more\n";
  return text + ", and it grows to " + TimesCell(TimesOf(inside.tensors[*greatest])) +
         " times at " + Quoted(inside.tensors[*greatest].name) + "\n";
}

std::string StepText(const Inside& inside) {
  const auto step = inside.LargestStep();
  if (!step) return "";
  const InsideTensor& before = inside.tensors[step->before];
  const InsideTensor& at = inside.tensors[step->at];
  if (inside.floor) {
    const auto below = [](const InsideTensor& tensor) {
      return NumberText(RoundedTo(DecibelsBelow(*tensor.floor), 0.1));
    };
    return "the largest step beyond " + PrecisionText(inside) + " is at " + Quoted(at.name) +
           ": SNR " + below(before) + " -> " + below(at) + " dB below that of the floor, behind " +
           Quoted(before.name) + "\n";
  }
  const auto told = [](const InsideTensor& tensor) {
    const std::string snr = SnrText(tensor.census);
    return snr == "equal" ? "no difference" : snr + " dB";
  };
  return "the largest step is at " + Quoted(at.name) + ": SNR " + told(before) + " -> " + told(at) +
         ", behind " + Quoted(before.name) + "\n";
}

Json TensorJson(const Inside& inside, const InsideTensor& tensor) {
  Json json = Json::Object({{"name", tensor.name},
                            {"verdict", StateName(tensor.state)},
                            {"maxAbs", IsMeasured(tensor) ? tensor.census.maxAbs : NAN},
                            {"relativeRmse", tensor.RelativeRmse()},
                            {"snrDb", tensor.census.Snr()},
                            {"outsideShare", tensor.OutsideShare()}});
  if (!inside.floor) return json;
  json.Set("floor", AnswerName(AnswerOf(inside, tensor)));
  json.Set("floorSnrDb", tensor.floor ? tensor.floor->floor.Snr() : NAN);
  json.Set("timesFloor", TimesOf(tensor));
  return json;
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
  return source.isRun ? PrecisionIn(ProgramErrorsOf(source.path)) : "";
}

std::optional<GraphOrder> GraphOrderOf(const TensorSource& source) {
  if (!source.model || source.model->outputs.empty()) return std::nullopt;
  GraphOrder order;
  order.names = NamesOfOutputs(*source.model);
  std::optional<uint64_t> exposed = ExposedIn(ProgramErrorsOf(source.path));
  if (!exposed) {
    if (const auto configuration = ConfigurationOf(source.path)) {
      exposed = ExposedBy(*configuration, order.names);
    }
  }
  if (!exposed || *exposed == 0 || *exposed > order.names.size()) return order;
  order.isTold = true;
  order.own = order.names.size() - *exposed;
  std::rotate(order.names.begin(), order.names.end() - static_cast<std::ptrdiff_t>(*exposed),
              order.names.end());
  return order;
}

double InsideTensor::RelativeRmse() const {
  if (census.finite == 0) return NAN;
  if (census.sumSquares == 0) return 0;
  return std::sqrt(census.sumSquares / census.sumExpectedSquares);
}

double InsideTensor::OutsideShare() const {
  if (census.elements == 0) return NAN;
  return static_cast<double>(census.outside) / static_cast<double>(census.elements);
}

std::optional<size_t> Inside::Begin() const {
  for (size_t i = 0; i < tensors.size(); ++i) {
    const bool isIt = floor ? AnswerOf(*this, tensors[i]) == FloorAnswer::kWorse
                            : tensors[i].state == InsideState::kWrong;
    if (isIt) return i;
  }
  return std::nullopt;
}

std::optional<size_t> Inside::Greatest() const {
  const auto begin = Begin();
  const auto sizeOf = [&](size_t at) {
    return floor ? TimesOf(tensors[at]) : tensors[at].RelativeRmse();
  };
  if (!begin || std::isnan(sizeOf(*begin))) return std::nullopt;
  size_t greatest = *begin;
  for (size_t i = *begin + 1; i < tensors.size(); ++i) {
    if (sizeOf(i) > sizeOf(greatest)) greatest = i;
  }
  return greatest;
}

std::vector<Inside::Step> Inside::Steps() const {
  std::vector<Step> steps;
  std::optional<size_t> before;
  for (size_t i = 0; i < tensors.size(); ++i) {
    const auto level = LevelOf(*this, tensors[i]);
    if (!level) continue;
    const double fall = before ? *level - *LevelOf(*this, tensors[*before]) : 0;
    if (fall > 0) steps.push_back({*before, i, fall});
    before = i;
  }
  std::stable_sort(steps.begin(), steps.end(),
                   [](const Step& one, const Step& other) { return one.fall > other.fall; });
  return steps;
}

std::optional<Inside::Step> Inside::LargestStep() const {
  const auto steps = Steps();
  return steps.empty() ? std::nullopt : std::optional(steps.front());
}

std::string ShareText(double share) {
  if (std::isnan(share)) return "-";
  if (std::isinf(share)) return "infinite";
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.3g", share * 100);
  return std::string(text.data()) + " %";
}

std::string InsideText(const Inside& inside, bool areAllWanted) {
  std::string text = Table(inside, areAllWanted);
  if (!inside.unpaired.empty()) text += "\n" + UnpairedText(inside);
  return text + "\n" + (inside.floor ? BeginByFloor(inside) : BeginByRules(inside)) +
         StepText(inside) + "the order is " + inside.order + "\n";
}

Json InsideJson(const Inside& inside) {
  Json tensors = Json::Array();
  for (const InsideTensor& tensor : inside.tensors) tensors.Append(TensorJson(inside, tensor));
  Json unpaired = Json::Array();
  for (const UnpairedOutput& output : inside.unpaired) {
    unpaired.Append(
        Json::Object({{"name", output.name}, {"side", output.isActual ? "actual" : "expected"}}));
  }
  Json json = Json::Object({{"order", inside.order},
                            {"decidedBy", inside.floor ? "floor" : "rules"},
                            {"tensors", tensors}});
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
                           {"fallDb", step->fall},
                           {"place", step->at},
                           {"behind", name(step->before)},
                           {"snrDbBehind", inside.tensors[step->before].census.Snr()},
                           {"snrDb", inside.tensors[step->at].census.Snr()}}));
  }
  json.Set("unpaired", unpaired);
  return json;
}

}  // namespace vorn::kit
