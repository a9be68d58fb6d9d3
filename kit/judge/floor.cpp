#include "kit/judge/floor.h"

#include <cmath>

#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/judge/rules.h"

namespace vorn::kit {
namespace {

// Where one side has a NaN or an infinity that the other has not.
uint64_t Unusual(const Census& census) {
  return census.onlyActualNan + census.onlyExpectedNan + census.onlyActualInfinite +
         census.onlyExpectedInfinite + census.oppositeInfinite;
}

std::string TimesText(double times) {
  return std::isinf(times) ? "infinitely many times" : NumberText(times) + " times";
}

std::string Measure(const Census& census, double value) {
  return census.finite == 0 ? "-" : NumberText(value);
}

std::string AnswerText(const FloorReport& report, const FloorComparison& one) {
  const std::string precision = report.precision.empty() ? "the floor" : report.precision;
  const double times = RoundedTo(TimesFloor(one.actual, one.floor), 0.01);
  std::string text = Printable(one.output) + ": ";
  switch (one.Answer(report.most)) {
    case FloorAnswer::kWithin:
      text += "within what " + precision + " has to lose: RMSE " + TimesText(times) +
              " that of the floor";
      break;
    case FloorAnswer::kWorse:
      text +=
          "worse than " + precision + " has to be: RMSE " + TimesText(times) + " that of the floor";
      if (const uint64_t more = Unusual(one.actual); more > Unusual(one.floor)) {
        text += ", and " + std::to_string(more) +
                " NaN or infinities on one side only, the floor has " +
                std::to_string(Unusual(one.floor));
      }
      break;
    case FloorAnswer::kNotMeasured:
      text += "could not be held against the floor";
      break;
  }
  if (HasLostIt(one.floor)) {
    text += "; the floor itself has lost this output (SNR " +
            NumberText(RoundedTo(one.floor.Snr(), 0.1)) + " dB), and to be as good says nothing";
  }
  if (!one.leftOut.empty()) text += " (left out: " + Printable(one.leftOut) + ")";
  return text + "\n";
}

}  // namespace

double RoundedTo(double value, double step) {
  return std::isfinite(value) ? std::round(value / step) * step : value;
}

bool HasLostIt(const Census& floor) {
  constexpr double kLeastSnr = 3;  // dB: its noise is half of the signal
  return floor.finite > 0 && floor.Snr() < kLeastSnr;
}

double TimesFloor(const Census& actual, const Census& floor) {
  const double own = actual.Rmse();
  const double least = floor.Rmse();
  if (own == 0 && least == 0) return 1;
  return own / least;
}

std::string_view AnswerName(FloorAnswer answer) {
  switch (answer) {
    case FloorAnswer::kWithin:
      return "within";
    case FloorAnswer::kWorse:
      return "worse";
    case FloorAnswer::kNotMeasured:
      break;
  }
  return "notMeasured";
}

double DecibelsBelow(const FloorComparison& comparison) {
  return comparison.floor.CappedSnr() - comparison.actual.CappedSnr();
}

FloorAnswer FloorComparison::Answer(double most) const {
  if (Unusual(actual) > Unusual(floor)) return FloorAnswer::kWorse;
  const double times = TimesFloor(actual, floor);
  if (std::isnan(times)) return FloorAnswer::kNotMeasured;
  return times <= most ? FloorAnswer::kWithin : FloorAnswer::kWorse;
}

std::string FloorText(const FloorReport& report) {
  TextTable table({{"output", false},
                   {"floor", false},
                   {"samples", true},
                   {"RMSE", true},
                   {"floor's RMSE", true},
                   {"times", true},
                   {"SNR dB", true},
                   {"floor's SNR dB", true}});
  std::string answers;
  for (const FloorComparison& one : report.outputs) {
    const bool isMeasured = one.actual.finite > 0 && one.floor.finite > 0;
    const FloorAnswer answer = one.Answer(report.most);
    table.Add(
        {one.output,
         answer == FloorAnswer::kNotMeasured ? "not measured" : std::string(AnswerName(answer)),
         std::to_string(one.samples), Measure(one.actual, one.actual.Rmse()),
         Measure(one.floor, one.floor.Rmse()),
         isMeasured ? NumberText(RoundedTo(TimesFloor(one.actual, one.floor), 0.01)) : "-",
         Measure(one.actual, RoundedTo(one.actual.Snr(), 0.1)),
         Measure(one.floor, RoundedTo(one.floor.Snr(), 0.1))});
    answers += AnswerText(report, one);
  }
  return table.Text() + "\n" + answers + "the floor is " + Quoted(report.path) + "; up to " +
         NumberText(report.most) + " times its RMSE is within\n";
}

Json FloorJson(const FloorReport& report) {
  Json outputs = Json::Array();
  for (const FloorComparison& one : report.outputs) {
    Json json = Json::Object({{"name", one.output},
                              {"answer", AnswerName(one.Answer(report.most))},
                              {"samples", one.samples},
                              {"rmse", one.actual.Rmse()},
                              {"floorRmse", one.floor.Rmse()},
                              {"times", TimesFloor(one.actual, one.floor)},
                              {"snrDb", one.actual.Snr()},
                              {"floorSnrDb", one.floor.Snr()},
                              {"isFloorLost", HasLostIt(one.floor)}});
    if (!one.leftOut.empty()) json.Set("leftOut", one.leftOut);
    outputs.Append(json);
  }
  Json json = Json::Object({{"path", report.path}, {"most", report.most}, {"outputs", outputs}});
  if (!report.precision.empty()) json.Set("precision", report.precision);
  return json;
}

}  // namespace vorn::kit
