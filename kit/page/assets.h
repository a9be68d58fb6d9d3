// The files of assets/, which the build puts into the program.
#ifndef VORN_KIT_PAGE_ASSETS_H_
#define VORN_KIT_PAGE_ASSETS_H_

#include <string_view>

namespace vorn::kit {

struct EmbeddedText {
  std::string_view text;
  std::string_view sha256;  ///< 64 hexadecimal digits, by the build
};

[[nodiscard]] EmbeddedText StyleText();
[[nodiscard]] EmbeddedText PageScriptText();
[[nodiscard]] EmbeddedText TimelineScriptText();

/// uPlot as it was published: MIT, notices/uplot-LICENSE.txt.
[[nodiscard]] EmbeddedText PlotScriptText();
[[nodiscard]] EmbeddedText PlotStyleText();

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_ASSETS_H_
