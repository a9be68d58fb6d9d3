// The files of assets/, which the build puts into the program.
#ifndef VORN_KIT_PAGE_ASSETS_H_
#define VORN_KIT_PAGE_ASSETS_H_

#include <string_view>

namespace vorn::kit {

[[nodiscard]] std::string_view StyleText();
[[nodiscard]] std::string_view PageScriptText();
[[nodiscard]] std::string_view TimelineScriptText();

/// uPlot as it was published: MIT, notices/uplot-LICENSE.txt.
[[nodiscard]] std::string_view PlotScriptText();
[[nodiscard]] std::string_view PlotStyleText();

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_ASSETS_H_
