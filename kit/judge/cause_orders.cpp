// Causes that put right values into wrong places: each supposes where the value of an element was
// taken from.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>

#include "kit/judge/cause_evidence.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kNowhere = UINT64_MAX;

// What repeats itself looks right at thousands of strides: so many are looked at, and of those that
// seem right so many are held against all elements, at each of which that takes a while.
constexpr uint64_t kMostTried = 1 << 16;
constexpr uint64_t kMostWeighed = 32;

using PlaceOf = std::function<uint64_t(uint64_t element)>;

class OrderFinder {
 public:
  OrderFinder(const CauseQuestion& question, const Scales& scales, std::vector<Cause>& causes)
      : question_(question),
        scales_(scales),
        likeness_(scales.Usual()),
        causes_(causes),
        count_(question.actual.size()) {
    for (const uint64_t size : question.shape) {
      if (CountElements(question.shape) == count_) shape_.push_back(size);
    }
    rowElements_ = shape_.empty() ? count_ : shape_.back();
    FindMajority();
  }

  void Find() {
    FindSamples();
    FindItems();
    FindPermutations();
    FindFlips();
    FindStrides();
    FindShifts();
  }

 private:
  bool Try(const char* id, const std::string& text, std::span<const float> source,
           const PlaceOf& placeOf) {
    const auto evidence = scales_.Weigh(likeness_, [&](uint64_t element) -> std::optional<Told> {
      const uint64_t place = placeOf(element);
      if (place >= source.size()) return std::nullopt;
      return Told{question_.actual[element], source[place]};
    });
    if (!evidence || !IsMoreThanBlank(source, placeOf)) return false;
    causes_.push_back(MakeCause(id, text, *evidence));
    return true;
  }

  // The value that more than half of the elements have, if there is one.
  void FindMajority() {
    uint64_t lead = 0;
    float value = 0;
    for (const float actual : question_.actual) {
      if (std::isnan(actual)) continue;  // it is like no other, not even itself
      if (lead == 0) value = actual;
      lead = actual == value ? lead + 1 : lead - 1;
    }
    const auto having = std::count(question_.actual.begin(), question_.actual.end(), value);
    if (static_cast<uint64_t>(having) * 2 > count_) majority_ = value;
  }

  // Whether what is explained is not only that nothing stands where something was expected: of
  // values that were moved, some are there.
  bool IsMoreThanBlank(std::span<const float> source, const PlaceOf& placeOf) const {
    if (!majority_) return true;
    uint64_t explained = 0;
    uint64_t moved = 0;
    for (uint64_t element = 0; element < count_; ++element) {
      const uint64_t place = placeOf(element);
      const float actual = question_.actual[element];
      if (place >= source.size() || likeness_.AreAlike(actual, question_.expected[element]) ||
          !likeness_.AreAlike(actual, source[place])) {
        continue;
      }
      ++explained;
      moved += likeness_.AreAlike(actual, *majority_) ? 0 : 1;
    }
    constexpr uint64_t kOneOf = 20;
    return explained == 0 || (moved > 0 && moved * kOneOf >= explained);
  }

  bool Try(const char* id, const std::string& text, const PlaceOf& placeOf) {
    return Try(id, text, question_.expected, placeOf);
  }

  bool IsNext() const { return question_.sample && question_.otherSample == *question_.sample + 1; }
  bool IsBefore() const {
    return question_.sample && question_.otherSample &&
           *question_.otherSample + 1 == *question_.sample;
  }

  std::string OtherSampleText() const {
    return "it is the output of sample " + std::to_string(*question_.otherSample) +
           (IsNext() ? ", the next one" : "");
  }

  void FindSamples() {
    const auto same = [](uint64_t element) { return element; };
    // What came before may be known not to stand here again: then it is no old output.
    const bool isAgain =
        question_.former.size() != count_ ||
        std::memcmp(question_.actual.data(), question_.former.data(), count_ * sizeof(float)) == 0;
    const bool isStale = question_.before.size() == count_ &&
                         Try(isAgain ? "stale" : "other-sample",
                             isAgain ? "it is the output of the sample before: stale"
                                     : "it is what was expected of the sample before",
                             question_.before, same);
    if (isStale) causes_.back().neighbour = -1;
    const bool isOther = question_.other.size() == count_ && question_.otherSample &&
                         Try("other-sample", OtherSampleText(), question_.other, same);
    if (isOther) causes_.back().neighbour = IsNext() ? 1 : IsBefore() ? -1 : 0;
    if (!isStale || !isOther) return;
    // One of them. The sample before may be the other one, or only nearly like it.
    const size_t last = causes_.size() - 1;
    const bool isOtherBetter = causes_[last].certainty > causes_[last - 1].certainty + 0.005;
    causes_.erase(causes_.end() - (isOtherBetter ? 2 : 1));
  }

  // ---- Items of a batch -------------------------------------------------------------------------

  bool IsItemAt(uint64_t item, uint64_t other, uint64_t itemElements) const {
    constexpr uint64_t kLooks = 64;
    const uint64_t step = std::max<uint64_t>(itemElements / kLooks, 1);
    uint64_t looks = 0;
    uint64_t alike = 0;
    for (uint64_t i = 0; i < itemElements; i += step, ++looks) {
      alike += likeness_.LevelOf(question_.actual[item * itemElements + i],
                                 question_.expected[other * itemElements + i]) < kLevels - 1
                   ? 1
                   : 0;
    }
    return alike * 100 >= looks * 97;
  }

  void FindItems() {
    constexpr uint64_t kMostItems = 512;
    if (shape_.size() < 2 || shape_.front() < 2 || shape_.front() > kMostItems) return;
    const uint64_t items = shape_.front();
    const uint64_t itemElements = count_ / items;
    std::vector<uint64_t> from(items);
    std::string moved;
    for (uint64_t item = 0; item < items; ++item) {
      uint64_t other = item;
      if (!IsItemAt(item, item, itemElements)) {
        for (other = 0; other < items && !IsItemAt(item, other, itemElements);) ++other;
      }
      if (other == items) return;
      from[item] = other;
      if (other != item && moved.empty()) {
        moved =
            "item " + std::to_string(item) + " holds what belongs to item " + std::to_string(other);
      }
    }
    if (moved.empty()) return;
    Try("items-exchanged", "items of the batch are exchanged: " + moved, [=](uint64_t element) {
      return from[element / itemElements] * itemElements + element % itemElements;
    });
  }

  // ---- Dimensions -------------------------------------------------------------------------------

  // Whether the elements come in another order at all.
  bool ChangesOrder(const std::vector<size_t>& order) const {
    std::vector<size_t> axes;
    for (const size_t axis : order) {
      if (shape_[axis] > 1) axes.push_back(axis);
    }
    return !std::is_sorted(axes.begin(), axes.end());
  }

  void TryPermutation(const char* id, const char* text, const std::vector<size_t>& order) {
    if (shape_.size() != order.size() || !ChangesOrder(order)) return;
    std::vector<uint64_t> strides(shape_.size(), 1);
    for (size_t axis = shape_.size() - 1; axis > 0; --axis) {
      strides[axis - 1] = strides[axis] * shape_[axis];
    }
    Try(id, text, [&](uint64_t element) {
      uint64_t place = 0;
      for (size_t i = order.size(); i > 0; --i) {
        const uint64_t size = shape_[order[i - 1]];
        place += element % size * strides[order[i - 1]];
        element /= size;
      }
      return place;
    });
  }

  void FindPermutations() {
    constexpr const char* kLast = "its channels come last and should come first (NHWC for NCHW)";
    constexpr const char* kFirst = "its channels come first and should come last (NCHW for NHWC)";
    constexpr const char* kRows = "rows and columns are exchanged";
    // A picture of one channel has no layouts: there the same exchange is that of rows and columns.
    const size_t rank = shape_.size();
    const bool isOfOneChannel = (rank == 4 && shape_[1] == 1) || (rank == 3 && shape_[0] == 1);
    if (!isOfOneChannel) {
      TryPermutation("nchw-nhwc", kLast, {0, 2, 3, 1});
      TryPermutation("nchw-nhwc", kFirst, {0, 3, 1, 2});
      TryPermutation("nchw-nhwc", kLast, {1, 2, 0});
      TryPermutation("nchw-nhwc", kFirst, {2, 0, 1});
    }
    TryPermutation("rows-columns", kRows, {0, 1, 3, 2});
    TryPermutation("rows-columns", kRows, {0, 2, 1, 3});
    TryPermutation("rows-columns", kRows, {0, 2, 1});
    TryPermutation("rows-columns", kRows, {1, 0, 2});
    TryPermutation("rows-columns", kRows, {1, 0});
  }

  void FindFlips() {
    constexpr uint64_t kMostColours = 4;
    const Shape shape = shape_.empty() ? Shape{count_} : shape_;
    uint64_t stride = 1;
    for (size_t axis = shape.size(); axis > 0; --axis) {
      const uint64_t size = shape[axis - 1];
      const uint64_t step = stride;
      stride *= size;
      if (size < 2) continue;
      const bool isChannelFirst = axis - 1 == (shape.size() == 4 || shape.size() == 2 ? 1U : 0U);
      const bool isChannelLast = axis == shape.size() && axis > 2 && size <= kMostColours &&
                                 shape[axis - 2] > kMostColours;
      const auto place = [=](uint64_t element) {
        const uint64_t at = element / step % size;
        return element + (size - 1 - at) * step - at * step;
      };
      if (isChannelFirst || isChannelLast) {
        Try("channels-reversed", "its " + std::to_string(size) + " channels are reversed", place);
      } else {
        Try("flipped", "dimension " + std::to_string(axis - 1) + " is reversed", place);
      }
    }
  }

  // ---- Rows -------------------------------------------------------------------------------------

  void FindStrides() {
    const uint64_t row = rowElements_;
    if (row < 2 || count_ / row < 2) return;
    const uint64_t most = std::min(2 * row, row + 1024);
    const uint64_t mostWeighed = scales_.WholeWeighed() + kMostWeighed;
    for (uint64_t stride = row + 1; stride <= most; ++stride) {
      if (scales_.WholeWeighed() >= mostWeighed) break;
      if (!IsLikelyStride(question_.actual, question_.expected, stride)) continue;
      const auto place = [=](uint64_t element) {
        const uint64_t column = element % stride;
        return column < row ? element / stride * row + column : kNowhere;
      };
      if (Try("stride-left-in",
              "rows of " + std::to_string(row) + " elements stand " + std::to_string(stride) +
                  " apart: the padding was left in",
              place)) {
        break;
      }
    }
    const uint64_t mostWrong = scales_.WholeWeighed() + kMostWeighed;
    uint64_t tried = 0;
    for (uint64_t stride = 0; stride <= most && tried < kMostTried; ++stride) {
      if (scales_.WholeWeighed() >= mostWrong) return;
      if (stride == row || !IsLikelyStride(question_.expected, question_.actual, stride)) continue;
      ++tried;
      const auto place = [=](uint64_t element) { return element / row * stride + element % row; };
      const std::string text = stride == 0 ? "the first row stands in every row"
                                           : "rows were taken " + std::to_string(stride) +
                                                 " elements apart, and are " + std::to_string(row) +
                                                 " long: a wrong stride";
      if (Try("stride-wrong", text, place)) return;
    }
  }

  // Whether the second row of `dense` stands `stride` elements into `strided`.
  bool IsLikelyStride(std::span<const float> strided, std::span<const float> dense,
                      uint64_t stride) const {
    constexpr uint64_t kLooks = 16;
    const uint64_t row = rowElements_;
    const uint64_t looks = std::min(row, kLooks);
    uint64_t alike = 0;
    for (uint64_t i = 0; i < looks; ++i) {
      const uint64_t column = i * row / looks;
      if (stride + column >= strided.size()) return false;
      alike += likeness_.AreAlike(strided[stride + column], dense[row + column]) ? 1 : 0;
    }
    return alike * 10 >= looks * 8;
  }

  void TryShift(int64_t by) {
    const auto size = static_cast<int64_t>(count_);
    if (by == 0 || std::abs(by) * 2 > size) return;
    const auto row = static_cast<int64_t>(rowElements_);
    const bool isRows = row > 1 && row < size && by % row == 0;
    const int64_t many = isRows ? by / row : by;
    const std::string text = "everything stands " + std::to_string(std::abs(many)) +
                             (isRows ? " row" : " element") + (std::abs(many) == 1 ? "" : "s") +
                             (by > 0 ? " too late" : " too early");
    if (GoesRound(by)) {
      Try("shifted", text + ", and what is beyond one end comes in at the other", [=](uint64_t i) {
        return static_cast<uint64_t>((static_cast<int64_t>(i) - by + size) % size);
      });
    } else {
      Try("shifted", text, [=](uint64_t element) {
        const int64_t place = static_cast<int64_t>(element) - by;
        return place < 0 || place >= size ? kNowhere : static_cast<uint64_t>(place);
      });
    }
  }

  // Whether what came in is what went out, and neither blank nor there anyway. By a few only: of
  // one value among blanks any place is reached by going round far enough.
  bool GoesRound(int64_t by) const {
    constexpr int64_t kMostRound = 2;
    const auto size = static_cast<int64_t>(count_);
    if (std::abs(by) > kMostRound) return false;
    const int64_t first = by > 0 ? 0 : size + by;
    bool isAnyNew = false;
    for (int64_t i = first; i < first + std::abs(by); ++i) {
      const float actual = question_.actual[static_cast<size_t>(i)];
      const auto source = static_cast<size_t>((i - by + size) % size);
      if (!likeness_.AreAlike(actual, question_.expected[source])) return false;
      const bool isBlank = majority_ && likeness_.AreAlike(actual, *majority_);
      const bool wasThere = likeness_.AreAlike(actual, question_.expected[static_cast<size_t>(i)]);
      isAnyNew = isAnyNew || !(isBlank || wasThere);
    }
    return isAnyNew;
  }

  void FindShifts() {
    constexpr int64_t kMostElements = 64;
    constexpr int64_t kMostRows = 16;
    const size_t before = causes_.size();
    const auto row = static_cast<int64_t>(rowElements_);
    for (int64_t by = 1; by <= kMostElements && causes_.size() == before; ++by) {
      TryShift(by);
      TryShift(-by);
    }
    for (int64_t rows = 1; rows <= kMostRows && causes_.size() == before; ++rows) {
      if (row < 2) break;
      TryShift(rows * row);
      TryShift(-rows * row);
    }
  }

  const CauseQuestion& question_;
  const Scales& scales_;
  const Likeness& likeness_;
  std::vector<Cause>& causes_;
  uint64_t count_;
  Shape shape_;  ///< empty where it does not fit the elements
  uint64_t rowElements_;
  std::optional<float> majority_;  ///< among the actual values
};

}  // namespace

void FindOrderCauses(const CauseQuestion& question, const Scales& scales,
                     std::vector<Cause>& causes) {
  OrderFinder(question, scales, causes).Find();
}

}  // namespace vorn::kit
