// Causes that have to do with channels: two of them exchanged, or one that is not like the others.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "kit/judge/cause_evidence.h"

namespace vorn::kit {
namespace {

/// A dimension that may be that of channels: element i belongs to channel i / inner % channels.
struct ChannelAxis {
  uint64_t channels = 0;
  uint64_t inner = 0;
};

class ChannelFinder {
 public:
  ChannelFinder(const CauseQuestion& question, const Scales& scales, std::vector<Cause>& causes)
      : question_(question),
        scales_(scales),
        likeness_(scales.Usual()),
        causes_(causes),
        count_(question.actual.size()) {}

  void Find() {
    for (const ChannelAxis& axis : Axes()) {
      FindExchange(axis);
      FindOneOff(axis);
    }
  }

 private:
  static constexpr uint64_t kFewestElements = 4;  // of a channel: fewer are like any other's

  // First behind the batch, or last.
  [[nodiscard]] std::vector<ChannelAxis> Axes() const {
    const Shape& shape = question_.shape;
    if (CountElements(shape) != count_ || count_ == 0) return {};
    std::vector<size_t> dimensions;
    if (shape.size() == 2) dimensions = {1};
    if (shape.size() == 3) dimensions = {0, 2};
    if (shape.size() >= 4) dimensions = {1, shape.size() - 1};
    std::vector<ChannelAxis> axes;
    for (const size_t dimension : dimensions) {
      uint64_t inner = 1;
      for (size_t i = dimension + 1; i < shape.size(); ++i) inner *= shape[i];
      const uint64_t channels = shape[dimension];
      if (channels >= 2 && count_ / channels >= kFewestElements) axes.push_back({channels, inner});
    }
    return axes;
  }

  // Calls `visit` with the place of each element of a channel.
  template <typename Visit>
  void ForEach(const ChannelAxis& axis, uint64_t channel, const Visit& visit) const {
    const uint64_t item = axis.channels * axis.inner;
    for (uint64_t first = channel * axis.inner; first < count_; first += item) {
      for (uint64_t i = 0; i < axis.inner; ++i) visit(first + i);
    }
  }

  // ---- Exchanged --------------------------------------------------------------------------------

  // Whether a channel holds what was expected of another one, looking at some of its elements.
  bool IsChannelAt(const ChannelAxis& axis, uint64_t channel, uint64_t other) const {
    constexpr uint64_t kLooks = 64;
    const uint64_t elements = count_ / axis.channels;
    const uint64_t looks = std::min(elements, kLooks);
    uint64_t alike = 0;
    for (uint64_t look = 0; look < looks; ++look) {
      const uint64_t i = look * elements / looks;
      const uint64_t item = i / axis.inner * axis.channels * axis.inner + i % axis.inner;
      alike += likeness_.LevelOf(question_.actual[item + channel * axis.inner],
                                 question_.expected[item + other * axis.inner]) < kLevels - 1
                   ? 1
                   : 0;
    }
    return alike * 100 >= looks * 97;
  }

  void FindExchange(const ChannelAxis& axis) {
    constexpr uint64_t kMostChannels = 4096;
    constexpr uint64_t kMostMoved = 64;  // each is looked for among all of these
    if (axis.channels > kMostChannels) return;
    std::vector<uint64_t> moved;
    for (uint64_t channel = 0; channel < axis.channels; ++channel) {
      if (IsChannelAt(axis, channel, channel)) continue;
      moved.push_back(channel);
      if (moved.size() > kMostMoved) return;
    }
    if (moved.size() < 2) return;
    std::vector<uint64_t> from(axis.channels);
    std::iota(from.begin(), from.end(), 0U);
    std::vector<bool> isTaken(axis.channels, false);
    for (const uint64_t channel : moved) {
      const auto source = std::find_if(moved.begin(), moved.end(), [&](uint64_t other) {
        return !isTaken[other] && IsChannelAt(axis, channel, other);
      });
      if (source == moved.end()) return;
      from[channel] = *source;
      isTaken[*source] = true;
    }
    // All in the other direction is told elsewhere.
    const auto isReversed = [&](uint64_t channel) {
      return from[channel] == axis.channels - 1 - channel;
    };
    bool areAllReversed = true;
    for (uint64_t channel = 0; channel < axis.channels; ++channel) {
      areAllReversed = areAllReversed && isReversed(channel);
    }
    if (areAllReversed) return;
    const auto evidence = scales_.Weigh(likeness_, [&](uint64_t element) {
      const uint64_t channel = element / axis.inner % axis.channels;
      const uint64_t place = element - channel * axis.inner + from[channel] * axis.inner;
      return std::optional(Told{question_.actual[element], question_.expected[place]});
    });
    if (!evidence) return;
    const std::string first = std::to_string(moved[0]);
    const std::string second = std::to_string(from[moved[0]]);
    const std::string all = std::to_string(axis.channels);
    causes_.push_back(MakeCause(
        "channels-exchanged",
        moved.size() == 2
            ? "channels " + first + " and " + second + " of " + all + " are exchanged"
            : std::to_string(moved.size()) + " of " + all + " channels are exchanged: channel " +
                  first + " holds what belongs to channel " + second,
        *evidence));
  }

  // ---- One off ----------------------------------------------------------------------------------

  struct ChannelCounts {
    uint64_t wrong = 0;
    uint64_t marked = 0;  ///< elements that would be seen to be wrong if they were 0 or another's
  };

  void FindOneOff(const ChannelAxis& axis) {
    constexpr uint64_t kFewestChannels = 3;
    if (axis.channels < kFewestChannels) return;
    std::vector<ChannelCounts> counts(axis.channels);
    uint64_t marked = 0;
    uint64_t wrong = 0;
    for (uint64_t element = 0; element < count_; ++element) {
      ChannelCounts& channel = counts[element / axis.inner % axis.channels];
      const bool isWrong =
          !likeness_.AreAlike(question_.actual[element], question_.expected[element]);
      const bool isMarked = !likeness_.AreAlike(question_.expected[element], 0);
      channel.wrong += isWrong ? 1 : 0;
      channel.marked += isMarked ? 1 : 0;
      wrong += isWrong ? 1 : 0;
      marked += isMarked ? 1 : 0;
    }
    const auto worst = std::max_element(
        counts.begin(), counts.end(),
        [](const auto& one, const auto& other) { return one.wrong < other.wrong; });
    const uint64_t elements = count_ / axis.channels;
    // What is wrong has to be a good part of this channel, and next to nothing elsewhere, where as
    // much could have been seen.
    if (worst->wrong < kFewestElements || worst->wrong * 2 < std::min(worst->marked, elements) ||
        (wrong - worst->wrong) * 100 > marked - worst->marked ||
        marked - worst->marked < 2 * worst->wrong || (wrong - worst->wrong) * 20 > worst->wrong) {
      return;
    }
    uint64_t others = 0;  // that hold anything
    for (const ChannelCounts& channel : counts) {
      others += &channel != &*worst && channel.marked >= kFewestElements ? 1 : 0;
    }
    if (others < 2) return;
    const auto number = static_cast<uint64_t>(worst - counts.begin());
    std::string text = "channel " + std::to_string(number) + " of " +
                       std::to_string(axis.channels) + " alone is wrong";
    const std::vector<Cause> causes = FindCausesInside(axis, number);
    if (!causes.empty()) text += ": " + causes[0].text;
    const double explained = static_cast<double>(worst->wrong) / static_cast<double>(wrong);
    constexpr double kCertainty = 0.97;
    causes_.push_back({"channel-off", text, kCertainty * explained});
  }

  // Of the channel by itself.
  [[nodiscard]] std::vector<Cause> FindCausesInside(const ChannelAxis& axis,
                                                    uint64_t channel) const {
    std::vector<float> actual;
    std::vector<float> expected;
    ForEach(axis, channel, [&](uint64_t element) {
      actual.push_back(question_.actual[element]);
      expected.push_back(question_.expected[element]);
    });
    CauseQuestion question;
    question.actual = actual;
    question.expected = expected;
    question.shape = {actual.size()};  // of one dimension: there are no channels in it
    question.tolerance = question_.tolerance;
    return FindCauses(question);
  }

  const CauseQuestion& question_;
  const Scales& scales_;
  const Likeness& likeness_;
  std::vector<Cause>& causes_;
  uint64_t count_;
};

}  // namespace

void FindChannelCauses(const CauseQuestion& question, const Scales& scales,
                       std::vector<Cause>& causes) {
  ChannelFinder(question, scales, causes).Find();
}

}  // namespace vorn::kit
