// The settings of the trace layer: VORN_TRACE_FILE and so on.
#ifndef VORN_SHARED_TRACE_TRACE_SETTINGS_H_
#define VORN_SHARED_TRACE_TRACE_SETTINGS_H_

#include "shared/settings/layer_setting.h"

namespace vorn::trace {

enum SettingIndex { kFileSetting, kCallsSetting, kOnlySetting, kSettings };

inline constexpr LayerSetting kTraceSettings[kSettings] = {
    {"file", "FILE", "vorn.%p.vtrace", "The trace; %p in it is the process id."},
    {"calls", "N", "131072",
     "Make room for N calls, 131072 without it; a call takes 128 bytes. Later ones are counted."},
    {"only", "CALLS", "",
     "Note these calls alone, of several with commas between them any: a name or a pattern "
     "(vorn_rt_*), every Nth call of such (vorn_mdl_execute/100), calls by their numbers (10-20, "
     "500-), or a file with more of them, one a line (@FILE). The others are counted."},
};

}  // namespace vorn::trace

#endif  // VORN_SHARED_TRACE_TRACE_SETTINGS_H_
