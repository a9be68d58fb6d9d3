// The worst samples, opened: of a bounded number of them, whatever the number of all.
#ifndef VORN_KIT_REPORT_DETAIL_H_
#define VORN_KIT_REPORT_DETAIL_H_

#include <cstddef>
#include <string>
#include <vector>

#include "kit/report/judgement.h"
#include "kit/report/places.h"
#include "kit/report/report_facts.h"

namespace vorn::kit {

/// One output of one sample that is worth looking at.
struct DetailChoice {
  uint64_t sample = 0;
  uint64_t expectedSample = 0;  ///< its number on the other side
  size_t output = 0;            ///< of the judgement
  double rmse = 0;              ///< as judged, to six digits; NaN where it is not known
  uint64_t notFinite = 0;       ///< elements that are wrong by a NaN or an infinity
};

/// At most `most`: wrong outputs by turns, of each the kinds of fault by turns, of each kind first
/// the samples in which a NaN or an infinity stands that was not expected, then those with the
/// greatest RMSE; where tensors inside were compared, the first that is wrong comes before all
/// others. Of a verdict without a wrong sample
/// those with the greatest difference, `kMostRightDetails` at most.
[[nodiscard]] std::vector<DetailChoice> ChooseDetails(const ReportJudgement& judgement,
                                                      size_t most);
inline constexpr size_t kMostRightDetails = 3;

/// What ChooseDetails goes by, a sentence for people.
[[nodiscard]] std::string DetailsRule(const ReportJudgement& judgement);

struct DetailSource {
  std::string run;  ///< the folder of what was judged
  const KeptJudgement* judgement = nullptr;
  const Places* places = nullptr;
};

/// Opens each. What cannot be opened says so in its `obstacle`, and so do files that are no longer
/// those that were judged. Throws nothing but what is no Fault.
[[nodiscard]] std::vector<ReportDetail> MakeDetails(const DetailSource& source,
                                                    const std::vector<DetailChoice>& choices);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_DETAIL_H_
