// What there is to look at in two tensors of the same shape: pure functions over values.
#ifndef VORN_KIT_REPORT_TENSOR_VIEW_H_
#define VORN_KIT_REPORT_TENSOR_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// Both sides of one output of one sample, in the order of the side that is judged; as many values
/// on either.
struct TensorPair {
  std::span<const float> actual;
  std::span<const float> expected;
};

/// Sums over the pairs of finite values.
struct PairMeasures {
  uint64_t outside =
      0;  ///< of a tolerance |a − r| <= atol + rtol·|r|, and what is finite on one side alone
  double maxAbs = 0;
  double rmse = 0;    ///< NaN where no pair is finite
  double cosine = 0;  ///< likewise
};
[[nodiscard]] PairMeasures MeasurePair(const TensorPair& pair, double atol, double rtol);

[[nodiscard]] ReportHistogram HistogramOf(const TensorPair& pair, size_t bins = kMostReportBins);

[[nodiscard]] ReportEnvelope EnvelopeOf(const TensorPair& pair, size_t bins = kMostReportEnvelope);

/// The elements that are farthest apart, the farthest first: what is finite on one side alone
/// before all others. `sample` is noted with them.
[[nodiscard]] std::vector<ReportElement> WorstElements(const TensorPair& pair,
                                                       const std::vector<uint64_t>& shape,
                                                       uint64_t sample,
                                                       size_t most = kMostReportElements);

/// Rows and columns of a tensor that can be drawn: element [row, column] of channel c lies at
/// ChannelStart(c) + row·rowStride + column·columnStride.
struct ChannelLayout {
  std::vector<uint64_t> outer;  ///< the shape without rows and columns
  uint64_t rows = 0;
  uint64_t columns = 0;
  uint64_t channels = 0;  ///< the product of `outer`
  uint64_t rowStride = 0;
  uint64_t columnStride = 0;
  bool areChannelsLast = false;

  [[nodiscard]] uint64_t ChannelStart(uint64_t channel) const;
};

/// Of rank 2 the whole, of rank 3 and more the last two dimensions, or those before the last one
/// where channels come last. No rows where there is nothing to see: rank below 2, or a single
/// element, row or column in each channel.
[[nodiscard]] ChannelLayout LayoutOf(const std::vector<uint64_t>& shape, bool areChannelsLast);

/// The channels with the greatest RMSE, the greatest first.
[[nodiscard]] std::vector<ReportHeatmap> HeatmapsOf(const TensorPair& pair,
                                                    const ChannelLayout& layout,
                                                    size_t most = kMostReportHeatmaps,
                                                    uint32_t mostSize = kMostReportHeatmap);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_TENSOR_VIEW_H_
