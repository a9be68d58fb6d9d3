// A layer's own words, of which there are few: it speaks in somebody else's process.
#ifndef VORN_LAYERS_COMMON_SAY_H_
#define VORN_LAYERS_COMMON_SAY_H_

namespace vorn::layers {

/// One line on standard error, "vorn-layer: …", with one write() and without allocating. Cut behind
/// 500 characters.
[[gnu::format(printf, 1, 2)]] void Say(const char* format, ...);

}  // namespace vorn::layers

#endif  // VORN_LAYERS_COMMON_SAY_H_
