// What was kept of each sample of an output, as columns of a table that does not grow with the
// number of samples.
#ifndef VORN_KIT_JUDGE_COLUMNS_H_
#define VORN_KIT_JUDGE_COLUMNS_H_

#include <cstddef>
#include <vector>

#include "kit/json/json.h"
#include "kit/judge/verdict.h"

namespace vorn::kit {

/// Rows of all outputs of a verdict together, and of one of them.
inline constexpr size_t kMostRowsOfAll = 100000;
inline constexpr size_t kMostRows = 10000;

/// How many rows an output has room for: a hundred at least, however many outputs there are.
[[nodiscard]] size_t RowsAnOutput(size_t outputs);

/// "columns" of verdict.json. With more samples than `mostRows` a row stands for several that
/// follow each other, and is the worst of them: one that is not right before one that is, then the
/// one with the most elements that are wrong by a NaN or an infinity, then with the greatest RMSE.
[[nodiscard]] Json ColumnsJson(const std::vector<SampleSketch>& samples, size_t mostRows);

/// "pairs" of the agreement: [expected class, actual class, items], the most items first, and at
/// most kMostPairsTold of them; `leftOut` becomes the items of all others.
[[nodiscard]] Json PairsJson(const TopAgreement& agreement, uint64_t& leftOut);
inline constexpr size_t kMostPairsTold = 400;

}  // namespace vorn::kit

#endif  // VORN_KIT_JUDGE_COLUMNS_H_
