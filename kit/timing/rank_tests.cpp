// Ranks are doubled, so that those which equal values share are whole numbers.
#include "kit/timing/rank_tests.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <numeric>

#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

using Counts = std::vector<double>;  // by sum of doubled ranks: in how many ways it comes about

std::vector<size_t> DoubledRanks(std::span<const double> values) {
  std::vector<size_t> doubled;
  for (const double rank : Ranks(values)) doubled.push_back(static_cast<size_t>(2 * rank));
  return doubled;
}

// The share of all ways whose sum is as far from the middle as `sum` is.
double ShareAtLeastAsFar(const Counts& ways, size_t twiceMiddle, size_t sum) {
  const auto distance = [&](size_t of) {
    return std::abs(2 * static_cast<int64_t>(of) - static_cast<int64_t>(twiceMiddle));
  };
  double far = 0;
  for (size_t i = 0; i < ways.size(); ++i) {
    if (distance(i) >= distance(sum)) far += ways[i];
  }
  return far / std::accumulate(ways.begin(), ways.end(), 0.0);
}

// In how many ways `take` of the ranks have each sum.
Counts CountChoices(std::span<const size_t> ranks, size_t take, size_t most) {
  std::vector<Counts> ways(take + 1, Counts(most + 1, 0));
  ways[0][0] = 1;
  for (const size_t rank : ranks) {
    for (size_t taken = take; taken >= 1; --taken) {
      for (size_t sum = most; sum >= rank && sum <= most; --sum) {
        ways[taken][sum] += ways[taken - 1][sum - rank];
      }
    }
  }
  return ways[take];
}

// In how many ways any of the ranks have each sum.
Counts CountSubsets(std::span<const size_t> ranks, size_t most) {
  Counts ways(most + 1, 0);
  ways[0] = 1;
  for (const size_t rank : ranks) {
    for (size_t sum = most; sum >= rank && sum <= most; --sum) ways[sum] += ways[sum - rank];
  }
  return ways;
}

// Two-sided, with half a step of the sum taken off for its being a whole number.
double ByNormal(double distance, double step, double variance) {
  if (variance <= 0) return 1;
  return 2 * NormalShare(-std::max(0.0, distance - step / 2) / std::sqrt(variance));
}

}  // namespace

double MannWhitney(std::span<const double> one, std::span<const double> other) {
  if (one.empty() || other.empty()) return 1;
  std::vector<double> both(one.begin(), one.end());
  both.insert(both.end(), other.begin(), other.end());
  const std::vector<size_t> ranks = DoubledRanks(both);
  const auto ofOne = std::span(ranks).first(one.size());
  const size_t sum = std::accumulate(ofOne.begin(), ofOne.end(), size_t{0});
  const size_t all = both.size() * (both.size() + 1);
  const size_t twiceMiddle = 2 * one.size() * (both.size() + 1);
  if (one.size() <= kMostCounted && other.size() <= kMostCounted) {
    return ShareAtLeastAsFar(CountChoices(ranks, one.size(), all), twiceMiddle, sum);
  }
  // The variance of a sum of ranks drawn without putting back.
  const auto count = static_cast<double>(both.size());
  const double mean = count + 1;
  double squares = 0;
  for (const size_t rank : ranks) {
    squares += (static_cast<double>(rank) - mean) * (static_cast<double>(rank) - mean);
  }
  const double variance = squares / (count * (count - 1)) * static_cast<double>(one.size()) *
                          static_cast<double>(other.size());
  const double distance = std::abs(static_cast<double>(sum) - static_cast<double>(twiceMiddle) / 2);
  return ByNormal(distance, 2, variance);
}

double SignedRanks(std::span<const double> differences) {
  std::vector<double> distances;
  std::vector<bool> isAbove;
  for (const double difference : differences) {
    if (difference == 0) continue;
    distances.push_back(std::abs(difference));
    isAbove.push_back(difference > 0);
  }
  if (distances.empty()) return 1;
  const std::vector<size_t> ranks = DoubledRanks(distances);
  size_t sum = 0;
  double squares = 0;
  for (size_t i = 0; i < ranks.size(); ++i) {
    if (isAbove[i]) sum += ranks[i];
    squares += static_cast<double>(ranks[i]) * static_cast<double>(ranks[i]);
  }
  const size_t all = std::accumulate(ranks.begin(), ranks.end(), size_t{0});
  if (ranks.size() <= 2 * kMostCounted) {
    return ShareAtLeastAsFar(CountSubsets(ranks, all), all, sum);
  }
  const double distance = std::abs(static_cast<double>(sum) - static_cast<double>(all) / 2);
  return ByNormal(distance, 2, squares / 4);
}

double LeastMannWhitney(size_t one, size_t other) {
  double arrangements = 1;
  for (size_t i = 1; i <= one; ++i) {
    arrangements *= static_cast<double>(other + i) / static_cast<double>(i);
  }
  return std::min(1.0, 2 / arrangements);
}

double LeastSignedRanks(size_t pairs) {
  return std::min(1.0, 2 / std::pow(2.0, static_cast<double>(pairs)));
}

double Deflate(double p, double inflation) {
  if (p >= 1 || inflation <= 1) return std::min(p, 1.0);
  const double z = NormalQuantile(std::max(p, 1e-300) / 2);
  return 2 * NormalShare(z / std::sqrt(inflation));
}

std::vector<double> Holm(std::span<const double> all) {
  std::vector<size_t> order(all.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::sort(order.begin(), order.end(),
            [&](size_t one, size_t other) { return all[one] < all[other]; });
  std::vector<double> corrected(all.size());
  double before = 0;
  for (size_t i = 0; i < order.size(); ++i) {
    const auto left = static_cast<double>(all.size() - i);
    before = std::min(1.0, std::max(before, left * all[order[i]]));
    corrected[order[i]] = before;
  }
  return corrected;
}

}  // namespace vorn::kit
