// Small pictures of what a sample was made from.
#ifndef VORN_KIT_REPORT_THUMBNAIL_H_
#define VORN_KIT_REPORT_THUMBNAIL_H_

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kit/report/report_facts.h"

namespace vorn::kit {

/// The picture in a file, as it is to be looked at, at most kMostReportPicture pixels a side.
/// `xxh3`: what the file was when the sample was made of it. Decodes in a child process, since
/// files are of others. Throws a Fault that says why there is none: no picture, changed since, too
/// large, the decoder crashed.
[[nodiscard]] ReportPicture ThumbnailOf(const std::string& path,
                                        const std::optional<std::string>& xxh3);

/// A tensor that looks like a picture: [1,] 1 or 3 channels, rows, columns, or with channels last.
struct PictureTensor {
  uint32_t rows = 0;
  uint32_t columns = 0;
  uint32_t channels = 0;  ///< 1 or 3
  bool areChannelsLast = false;

  [[nodiscard]] uint64_t Elements() const { return uint64_t{rows} * columns * channels; }
};

/// Empty where a tensor of that shape does not.
[[nodiscard]] std::optional<PictureTensor> PictureTensorOf(const std::vector<int64_t>& shape,
                                                           bool areChannelsLast);

/// Its values drawn, from the least (black) to the greatest (white) of those that are finite. There
/// are as many as `shape` has elements.
[[nodiscard]] ReportPicture DrawTensor(std::span<const float> values, const PictureTensor& shape);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_THUMBNAIL_H_
