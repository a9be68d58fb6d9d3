// Changes that a fuzzer's own mutator hardly comes to: a piece of the text many times over, and
// brackets around it many times over. What is long or deep is reached by these in one step.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <random>
#include <string>
#include <string_view>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

constexpr size_t kLongestPiece = 32;
constexpr unsigned kMostDoublings = 18;

size_t Count(std::minstd_rand& random) {
  const size_t most = size_t{1} << random() % kMostDoublings;
  return 1 + random() % most;
}

std::string Times(size_t count, std::string_view piece) {
  std::string text;
  for (size_t i = 0; i < count; ++i) text += piece;
  return text;
}

void RepeatPiece(std::string& text, std::minstd_rand& random) {
  const size_t at = random() % text.size();
  const std::string piece = text.substr(at, 1 + random() % kLongestPiece);
  text.insert(at, Times(Count(random), piece));
}

void NestPiece(std::string& text, std::minstd_rand& random) {
  static constexpr std::string_view kBrackets[][2] = {
      {"[", "]"}, {"{\"model\":", "}"}, {"{\"dims\":", "}"}};
  const auto& [open, close] = kBrackets[random() % std::size(kBrackets)];
  const size_t at = random() % text.size();
  const size_t length = std::min<size_t>(random() % (kLongestPiece + 1), text.size() - at);
  const size_t count = Count(random);
  const std::string closing = Times(random() % 4 == 0 ? random() % (count + 1) : count, close);
  text.insert(at + length, closing).insert(at, Times(count, open));
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
  std::minstd_rand random(seed);
  const unsigned choice = random() % 16;
  if (size == 0 || choice > 1) return LLVMFuzzerMutate(data, size, maxSize);
  std::string text(reinterpret_cast<const char*>(data), size);
  (choice == 0 ? RepeatPiece : NestPiece)(text, random);
  text.resize(std::min(text.size(), maxSize));
  std::copy(text.begin(), text.end(), data);
  return text.size();
}
