// Compiled without products that are added in one step (-ffp-contract=off): some machines would do
// so, others not.
#include "kit/prepare/random_values.h"

#include <bit>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

using Distribution = RandomRecipe::Distribution;

constexpr double kMostInteger = 0x1p53;

struct DistributionRow {
  Distribution distribution;
  std::string_view name;
  std::array<std::string_view, 2> keys;
};

constexpr std::array kDistributions{
    DistributionRow{Distribution::kUniform, "uniform", {"low", "high"}},
    DistributionRow{Distribution::kNormal, "normal", {"mean", "deviation"}},
    DistributionRow{Distribution::kIntegers, "integers", {"low", "high"}},
    DistributionRow{Distribution::kBool, "bool", {"share", ""}},
};

const DistributionRow& RowNamed(const std::string& name) {
  std::vector<std::string> names;
  for (const DistributionRow& row : kDistributions) {
    if (row.name == name) return row;
    names.emplace_back(row.name);
  }
  throw JsonError("there is no distribution '" + Printable(name) + "'" + DidYouMean(name, names) +
                  "; there are uniform, normal, integers and bool");
}

double FiniteNumber(const Json& object, std::string_view key, double otherwise) {
  const Json* value = object.Find(key);
  if (value == nullptr) return otherwise;
  const double number = value->AsNumber();
  if (std::isfinite(number)) return number;
  throw JsonError(std::string(key) + " is " + ShownValue(*value) + ", and has to be finite");
}

double WholeNumber(const Json& object, std::string_view key) {
  const double number = FiniteNumber(object, key, object.At(key).AsNumber());
  if (std::abs(number) <= kMostInteger && number == std::trunc(number)) return number;
  throw JsonError(std::string(key) + " is " + ShownValue(object.At(key)) +
                  ", and has to be a whole number between -2^53 and 2^53");
}

void HoldToKeysOf(const DistributionRow& row, const Json& object) {
  std::vector<std::string> known{"distribution", "seed", "series"};
  for (const std::string_view key : row.keys) {
    if (!key.empty()) known.emplace_back(key);
  }
  HoldToKeys(object, "random numbers of the distribution " + std::string(row.name) + " have",
             known);
}

std::string Refused(const Json& low, const Json& high, const char* wanted) {
  return "random numbers from " + ToText(low) + " to " + ToText(high) + ": " + wanted;
}

uint64_t MixIn(uint64_t state, uint64_t word) {
  state ^= word;
  return NextSplitMix(state);
}

// FNV-1a.
uint64_t HashOf(std::string_view text) {
  uint64_t hash = 0xCBF29CE484222325;
  for (const char byte : text) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  }
  return hash;
}

// The natural logarithm of a number above 0, within three units of the last place, by
// ln m = 2 (t + t^3/3 + t^5/5 + ...), t = (m - 1) / (m + 1), m between the roots of 1/2 and 2.
double Logarithm(double value) {
  int exponent = 0;
  double m = std::frexp(value, &exponent);  // exact, as ldexp would be
  constexpr double kRootOfHalf = 0x1.6a09e667f3bcdp-1;
  constexpr double kLogarithmOf2 = 0x1.62e42fefa39efp-1;
  if (m < kRootOfHalf) {
    m *= 2;
    --exponent;
  }
  const double t = (m - 1) / (m + 1);
  const double square = t * t;
  constexpr int kLastTerm = 23;  // the next is below 2^-60 of the first
  double sum = 0;
  for (int n = kLastTerm; n > 0; n -= 2) sum = sum * square + 1.0 / n;
  return 2 * t * sum + exponent * kLogarithmOf2;
}

Json OfDistribution(const RandomRecipe& recipe) {
  switch (recipe.distribution) {
    case Distribution::kNormal:
      return Json::Object({{"distribution", "normal"},
                           {"mean", recipe.mean},
                           {"deviation", recipe.deviation},
                           {"seed", recipe.seed}});
    case Distribution::kIntegers:
      return Json::Object({{"distribution", "integers"},
                           {"low", static_cast<int64_t>(recipe.low)},
                           {"high", static_cast<int64_t>(recipe.high)},
                           {"seed", recipe.seed}});
    case Distribution::kBool:
      return Json::Object(
          {{"distribution", "bool"}, {"share", recipe.share}, {"seed", recipe.seed}});
    case Distribution::kUniform:
      break;
  }
  return Json::Object({{"distribution", "uniform"},
                       {"low", recipe.low},
                       {"high", recipe.high},
                       {"seed", recipe.seed}});
}

}  // namespace

RandomRecipe ParseRandomRecipe(const Json& object) {
  const DistributionRow& row = RowNamed(object.At("distribution").AsText());
  HoldToKeysOf(row, object);
  RandomRecipe recipe;
  recipe.distribution = row.distribution;
  if (const Json* seed = object.Find("seed")) recipe.seed = seed->AsUnsigned();
  if (const Json* series = object.Find("series")) recipe.series = series->AsText();
  if (row.distribution == Distribution::kIntegers) {
    recipe.low = WholeNumber(object, "low");
    recipe.high = WholeNumber(object, "high");
    if (recipe.low > recipe.high) {
      throw JsonError(Refused(object.At("low"), object.At("high"), "high has to be low or more"));
    }
  } else if (row.distribution == Distribution::kUniform) {
    recipe.low = FiniteNumber(object, "low", recipe.low);
    recipe.high = FiniteNumber(object, "high", recipe.high);
    if (!(recipe.low < recipe.high) || !std::isfinite(recipe.high - recipe.low)) {
      throw JsonError(Refused(Json(recipe.low), Json(recipe.high),
                              "low has to be less than high, by a finite number"));
    }
  }
  recipe.mean = FiniteNumber(object, "mean", recipe.mean);
  recipe.deviation = FiniteNumber(object, "deviation", recipe.deviation);
  if (recipe.deviation < 0) {
    throw JsonError("deviation is " + ShownValue(object.At("deviation")) +
                    ", and has to be 0 or more");
  }
  recipe.share = FiniteNumber(object, "share", recipe.share);
  if (recipe.share < 0 || recipe.share > 1) {
    throw JsonError("share is " + ShownValue(object.At("share")) + ", and has to be from 0 to 1");
  }
  return recipe;
}

Json ToJson(const RandomRecipe& recipe) {
  Json json = OfDistribution(recipe);
  if (recipe.series) json.Set("series", *recipe.series);
  return json;
}

uint64_t RandomWords::Next() {
  const uint64_t word = std::rotl(state_[1] * 5, 7) * 9;
  const uint64_t shifted = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= shifted;
  state_[3] = std::rotl(state_[3], 45);
  return word;
}

uint64_t NextSplitMix(uint64_t& state) {
  state += 0x9E3779B97F4A7C15;
  uint64_t word = state;
  word = (word ^ word >> 30) * 0xBF58476D1CE4E5B9;
  word = (word ^ word >> 27) * 0x94D049BB133111EB;
  return word ^ word >> 31;
}

RandomWords WordsFor(uint64_t seed, std::string_view input, uint64_t sample) {
  uint64_t mixed = MixIn(MixIn(MixIn(0, seed), HashOf(input)), sample);
  std::array<uint64_t, 4> state{};
  // Of four neighbours of this series one at most is 0.
  for (uint64_t& word : state) word = NextSplitMix(mixed);
  return RandomWords(state);
}

RandomSeries::RandomSeries(const RandomRecipe& recipe, std::string_view input, uint64_t sample)
    : recipe_(recipe), words_(WordsFor(recipe.seed, input, sample)) {}

double RandomSeries::Next() {
  switch (recipe_.distribution) {
    case Distribution::kNormal:
      return recipe_.mean + recipe_.deviation * Normal();
    case Distribution::kIntegers:
      return Integer();
    case Distribution::kBool:
      return Fraction() < recipe_.share ? 1 : 0;
    case Distribution::kUniform:
      break;
  }
  const double value = recipe_.low + (recipe_.high - recipe_.low) * Fraction();
  // Rounding may bring it up to what is left out.
  return value < recipe_.high ? value : std::nextafter(recipe_.high, recipe_.low);
}

void RandomSeries::Fill(std::span<double> room) {
  for (double& value : room) value = Next();
}

double RandomSeries::Fraction() {
  constexpr int kUnused = 64 - std::numeric_limits<double>::digits;
  return static_cast<double>(words_.Next() >> kUnused) * 0x1p-53;
}

double RandomSeries::Normal() {
  if (second_) {
    const double value = *second_;
    second_.reset();
    return value;
  }
  while (true) {
    const double x = 2 * Fraction() - 1;
    const double y = 2 * Fraction() - 1;
    const double square = x * x + y * y;
    if (square >= 1 || square == 0) continue;
    const double factor = std::sqrt(-2 * Logarithm(square) / square);
    second_ = y * factor;
    return x * factor;
  }
}

double RandomSeries::Integer() {
  const auto last = static_cast<uint64_t>(recipe_.high - recipe_.low);
  if (last == 0) return recipe_.low;
  const int unused = std::countl_zero(last);
  while (true) {
    const uint64_t drawn = words_.Next() >> unused;
    if (drawn <= last) return recipe_.low + static_cast<double>(drawn);
  }
}

}  // namespace vorn::kit
