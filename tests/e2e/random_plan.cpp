#include "e2e/random_plan.h"

#include <algorithm>
#include <limits>
#include <random>

namespace e2e {
namespace {

constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();
constexpr int64_t kMax64 = std::numeric_limits<int64_t>::max();

/// Numbers that a seed decides. The library's distributions differ from one library to the next.
class Dice {
 public:
  explicit Dice(uint64_t seed) : engine_(seed * 0x9E3779B97F4A7C15 + 1) {}

  /// From `low` to `high`, both included.
  uint64_t Roll(uint64_t low, uint64_t high) { return low + engine_() % (high - low + 1); }
  size_t Count(size_t low, size_t high) { return static_cast<size_t>(Roll(low, high)); }

  /// True in so many of 100 cases.
  bool Chance(unsigned percent) { return Roll(1, 100) <= percent; }

  template <typename T>
  T Pick(const std::vector<T>& choices) {
    return choices[Count(0, choices.size() - 1)];
  }

  std::string Bytes(size_t count) {
    std::string bytes;
    for (size_t i = 0; i < count; ++i) bytes += static_cast<char>(Roll(0, 255));
    return bytes;
  }

  template <typename T>
  void Shuffle(std::vector<T>* list) {
    for (size_t i = list->size(); i > 1; --i) std::swap((*list)[i - 1], (*list)[Count(0, i - 1)]);
  }

 private:
  std::mt19937_64 engine_;
};

/// Makes one plan; the steps in order.
class Planner {
 public:
  explicit Planner(uint64_t seed) : dice_(seed), odd_(dice_.Chance(50)) {}

  RunPlan Make() {
    PlanModel();
    PlanFiles();
    PlanList();
    PlanWords();
    PlanRefusals();
    return plan_;
  }

 private:
  void PlanModel();
  PlannedTensor Tensor();
  std::string Name();
  uint32_t Type();
  uint64_t Stride(uint64_t rowBytes);
  void PlanRpnInput();
  void PlanFiles();
  std::string FileFor(const PlannedTensor& tensor);
  std::string RpnText();
  void PlanList();
  void PlanWords();
  void SpoilWords();
  void PlanRefusals();
  void PlanAnswer();

  /// In odd plans, so many of 100 cases.
  bool Odd(unsigned percent) { return odd_ && dice_.Chance(percent); }

  Dice dice_;
  const bool odd_;  // whether anything may make no sense at all
  RunPlan plan_;
  uint64_t batch_ = 1;
  size_t dataInputs_ = 1;
  size_t rpnFiles_ = 0;
};

// ---- The network --------------------------------------------------------------------------------

void Planner::PlanModel() {
  batch_ = dice_.Chance(60) ? 1 : dice_.Roll(2, 4);
  plan_.netType = dice_.Pick<int32_t>({0, 0, 0, 1, 2, 2});
  if (Odd(5)) plan_.netType = dice_.Pick<int32_t>({-1, 3, 7});
  if (Odd(3)) plan_.runMode = dice_.Pick<int32_t>({1, -1});
  if (Odd(8)) plan_.limitBytes = dice_.Pick<uint64_t>({0, 100, 300, 1000});
  if (Odd(10)) {
    plan_.bits[dice_.Pick<uint32_t>({0, 2, 4, 6, 99})] =
        dice_.Pick<uint64_t>({0, 1, 7, 8, 12, 24, 64, 128, uint64_t{1} << 45});
  }
  dataInputs_ = dice_.Count(1, 3);
  if (Odd(5)) dataInputs_ = dice_.Count(0, 5);
  for (size_t i = 0; i < dataInputs_; ++i) plan_.inputs.push_back(Tensor());
  PlanRpnInput();
  plan_.inputs.push_back({{"task", {32}, 4, 16, 32, 2}, {}, {}});
  plan_.inputs.push_back({{"work", {64}, 4, 16, dice_.Roll(1, 80), 2}, {}, {}});
  if (Odd(5)) plan_.inputs.back() = Tensor();
  if (Odd(3)) plan_.inputs.resize(dice_.Count(0, plan_.inputs.size()));
  for (size_t i = dice_.Count(0, 3); i > 0; --i) {
    PlannedTensor output = Tensor();
    if (dice_.Chance(20)) output.fullName = Name();
    plan_.outputBytes.push_back(
        dice_.Bytes(dice_.Count(0, std::min<uint64_t>(output.size, 400) * batch_ + 4)));
    plan_.outputs.push_back(output);
  }
}

/// A shape, and the stride and size that go with it, more or less.
PlannedTensor Planner::Tensor() {
  PlannedTensor tensor;
  tensor.name = Name();
  tensor.type = Type();
  tensor.format = dice_.Pick<int32_t>({0, 1, 2});
  const size_t rank = dice_.Count(1, 4);
  for (size_t k = 0; k < rank; ++k) tensor.dims.push_back(static_cast<int64_t>(dice_.Roll(1, 4)));
  const uint64_t elem = std::clamp<uint64_t>(BitsOf(plan_, tensor.type) / 8, 1, 16);
  uint64_t rows = 1;
  for (size_t k = 0; k + 1 < rank; ++k) rows *= static_cast<uint64_t>(tensor.dims[k]);
  tensor.stride = Stride(static_cast<uint64_t>(tensor.dims.back()) * elem);
  // Rows that all start at the same place would make a dump of their number times their length.
  tensor.size = tensor.stride < elem ? 2 * tensor.stride : rows * tensor.stride;
  if (Odd(10)) tensor.size += dice_.Roll(0, 20);
  if (Odd(3)) tensor.size = dice_.Pick<uint64_t>({0, 1, 3, uint64_t{1} << 40, uint64_t{1} << 63});
  if (Odd(3))
    tensor.stride = dice_.Pick<uint64_t>({0, uint64_t{1} << 31, (uint64_t{1} << 32) + 16});
  if (Odd(10)) {
    tensor.dims[dice_.Count(0, rank - 1)] = dice_.Pick<int64_t>(
        {0, -1, -3, 1000, int64_t{1} << 31, int64_t{1} << 32, int64_t{1} << 62, kMin64, kMax64});
  }
  if (Odd(4)) tensor.dims.clear();
  if (Odd(4)) tensor.rank = dice_.Pick<uint64_t>({0, 1, 2, 5, 127, 128, 129, 1000});
  if (Odd(1)) tensor.rank = std::numeric_limits<uint64_t>::max();
  if (Odd(3)) tensor.format = -1;
  return tensor;
}

std::string Planner::Name() {
  if (Odd(20)) {
    return dice_.Pick<std::string>(
        {"", "a.b", "a/b", "a\\b", "a_b", "a:b", ".", "..", "./", "two words", "tab\t", "\xC3\xA9",
         "a\nb", "\"", std::string(127, 'n'), std::string(128, 'n'), std::string(129, 'n'),
         std::string(dice_.Count(225, 235), 'l'), std::string(300, 'x')});
  }
  return dice_.Pick<std::string>({"in0", "in1", "in2", "in3", "data", "mask", "prob", "same"});
}

uint32_t Planner::Type() {
  if (Odd(8)) return dice_.Pick<uint32_t>({12, 99, 0x80000000, 0xFFFFFFFF});
  return dice_.Pick<uint32_t>({0, 0, 0, 1, 2, 3, 4, 4, 5, 6, 7, 8, 9, 10, 11});
}

uint64_t Planner::Stride(uint64_t rowBytes) {
  if (Odd(10)) return dice_.Roll(1, rowBytes);
  if (dice_.Chance(15)) return rowBytes + dice_.Roll(0, 5);
  const uint64_t unit = dice_.Pick<uint64_t>({1, 8, 16, 16, 32});
  return (rowBytes + unit - 1) / unit * unit;
}

/// With some networks a threshold input, and as many files; not always both.
void Planner::PlanRpnInput() {
  if (!dice_.Chance(plan_.netType == 1 ? 90 : 10)) return;
  const bool single = dice_.Chance(50);
  const auto width = static_cast<int64_t>(single ? 4 : dice_.Roll(1, 4));
  PlannedTensor rpn;
  rpn.name = "rpn";
  rpn.dims = {single ? 1 : 4, width};
  rpn.stride = dice_.Pick<uint64_t>({16, 16, 20, 32});
  rpn.size = rpn.stride * (single ? 1 : 4);
  if (Odd(15)) rpn.dims[0] = dice_.Pick<int64_t>({-4, 0, 2, 5, (int64_t{1} << 32) + 1, kMin64});
  if (Odd(15))
    rpn.dims[1] = dice_.Pick<int64_t>(
        {-4, 0, 3, 5, (int64_t{1} << 32) + 4, (int64_t{1} << 30) + 1, (int64_t{1} << 30) + 2});
  if (Odd(10)) rpn.rank = dice_.Roll(0, 3);
  if (Odd(15)) rpn.stride = dice_.Roll(0, 40);
  if (Odd(10)) {
    rpn.stride = dice_.Pick<uint64_t>(
        {0xFFFFFFF4, 0xFFFFFFFC, 0x80000000, (uint64_t{1} << 32) + 4, (uint64_t{1} << 32) + 20});
  }
  if (Odd(10)) rpn.size = dice_.Roll(0, 40);
  plan_.inputs.push_back(rpn);
  rpnFiles_ = 1;
  if (Odd(15)) rpnFiles_ = dice_.Count(0, dataInputs_ + 2);
}

// ---- The files ----------------------------------------------------------------------------------

void Planner::PlanFiles() {
  plan_.files = {{"model.om", dice_.Bytes(dice_.Count(1, 30))}, {"vorn.json", "{}"}};
  if (Odd(2)) plan_.files["model.om"] = "";
  if (Odd(2)) plan_.files.erase("model.om");
  if (Odd(2)) plan_.files.erase("vorn.json");
  if (Odd(3)) plan_.folders.erase("out");
  plan_.folders.insert("folder");
  // File k of a group is f<group>.<k>; a later group has other files.
  for (size_t group = 0; group < 3; ++group) {
    for (size_t k = 0; k < dataInputs_; ++k) {
      plan_.files["f" + std::to_string(group) + "." + std::to_string(k)] =
          FileFor(k < plan_.inputs.size() ? plan_.inputs[k] : PlannedTensor());
    }
  }
  for (size_t k = 0; k < rpnFiles_; ++k) plan_.files["rpn" + std::to_string(k)] = RpnText();
}

/// Bytes for an input: all rows without padding, or the device's size, or neither.
std::string Planner::FileFor(const PlannedTensor& tensor) {
  uint64_t dense = BitsOf(plan_, tensor.type) / 8;
  for (const int64_t dim : tensor.dims) dense *= static_cast<uint64_t>(dim);
  uint64_t size = dense * batch_;
  if (dice_.Chance(15)) size = tensor.size * batch_;
  if (dice_.Chance(15)) size = tensor.size * dice_.Roll(1, 5);
  if (Odd(10)) size = dice_.Roll(0, 300);
  if (Odd(2)) size = 0;
  return dice_.Bytes(size > 2000 ? dice_.Count(1, 100) : static_cast<size_t>(size));
}

std::string Planner::RpnText() {
  // Some models have lost their rpn input by now.
  const PlannedTensor rpn =
      dataInputs_ < plan_.inputs.size() ? plan_.inputs[dataInputs_] : PlannedTensor();
  size_t count = 4;
  if (rpn.dims.size() == 2 && rpn.dims[0] == 4) {
    const auto area = static_cast<uint32_t>(4 * static_cast<uint64_t>(rpn.dims[1]));
    if (area < 33) count = area;
  }
  if (Odd(15)) count = dice_.Count(0, 20);
  std::string text;
  for (size_t k = 0; k < count; ++k) {
    if (k > 0) text += dice_.Pick<std::string>({" ", "\n", "\t ", " \r\n"});
    text += dice_.Pick<std::string>({"0", "1", "-2.5", ".125", "3e2", "0.1", "+7", "1e-40"});
    if (Odd(1)) text += dice_.Pick<std::string>({"x", " nan", " inf", "e", "1e99", " 0x10", ","});
  }
  if (dice_.Chance(5)) text += "\n";
  return text;
}

// ---- The list and the command line --------------------------------------------------------------

void Planner::PlanList() {
  std::vector<std::string> lines;
  const bool named = dice_.Chance(40);
  // Groups go by the number of names, which counts the rpn inputs too.
  const size_t groups = dice_.Pick<size_t>({0, 1, 1, 1, 2, 2, 3});
  for (size_t group = 0; group < groups; ++group) {
    std::vector<std::string> entries;
    for (size_t k = 0; k < dataInputs_; ++k) {
      std::string entry = "f" + std::to_string(group) + "." + std::to_string(k);
      if (named && k < plan_.inputs.size()) {
        entry = plan_.inputs[k].name.substr(0, 128) + ":" + entry;
      }
      entries.push_back(entry);
    }
    if (named || Odd(5)) dice_.Shuffle(&entries);
    lines.insert(lines.end(), entries.begin(), entries.end());
  }
  if (Odd(10)) lines.push_back("f0.0");
  if (Odd(15) && !lines.empty()) {
    dice_.Pick<std::string*>({&lines.front(), &lines.back()})[0] =
        dice_.Pick<std::string>({":f0.0",
                                 "f0.0:",
                                 "in0:f0.0",
                                 "nobody:f0.0",
                                 "./f0.0",
                                 "/f0.0",
                                 "folder",
                                 "missing",
                                 "missing/f0.0",
                                 "f0.0/",
                                 "f0.0/x",
                                 "folder/../f0.0",
                                 "f0.0\r",
                                 " f0.0",
                                 "in0::f0.0",
                                 "in1:in0:f0.0",
                                 std::string(256, 'p'),
                                 std::string(4093, 'p'),
                                 std::string(4094, 'p'),
                                 std::string(4095, 'p')});
  }
  std::string text;
  for (const std::string& line : lines) {
    text += line + "\n";
    if (Odd(5)) text += "\n";
  }
  if (dice_.Chance(20) && !text.empty()) text.pop_back();
  plan_.files["list.txt"] = text;
  if (Odd(2)) plan_.files.erase("list.txt");
}

void Planner::PlanWords() {
  std::vector<std::pair<std::string, std::string>> options{
      {"-m", "model.om"}, {"-i", "list.txt"}, {"-j", "vorn.json"}, {"-o", "out"}};
  if (Odd(10)) {
    options[3].second =
        dice_.Pick<std::string>({"out/", "missing", "model.om", "out/missing", "folder", "./out"});
  }
  if (batch_ != 1 || dice_.Chance(10)) options.emplace_back("-b", std::to_string(batch_));
  if (Odd(8)) {
    options.emplace_back("-b", dice_.Pick<std::string>({"0", "-1", "2", "7", "+3", " 4", "5x",
                                                        "100000", "2147483647", "2147483648",
                                                        "-2147483648", "x", "", "0x10"}));
  }
  if (dice_.Chance(15)) {
    options.emplace_back("-t", dice_.Pick<std::string>({"5", "1", "0", "-1", "2147483647"}));
  }
  if (dice_.Chance(5)) options.emplace_back("-p", "1");
  if (Odd(5)) {
    options.emplace_back("-p", dice_.Pick<std::string>({"0", "2", "-1", "1", "01", "y"}));
  }
  if (rpnFiles_ > 0) {
    std::string list;
    for (size_t k = 0; k < rpnFiles_; ++k) list += (k == 0 ? "rpn" : ",rpn") + std::to_string(k);
    if (Odd(8)) {
      list = dice_.Pick<std::string>(
          {"", ",", list + ",", "," + list, list + ",,rpn0", "missing", "folder", "rpn0/x"});
    }
    options.emplace_back("-r", list);
  }
  dice_.Shuffle(&options);
  for (const auto& [option, value] : options) {
    plan_.words.push_back(option);
    plan_.words.push_back(value);
  }
  SpoilWords();
}

/// Rarely a command line that is not a list of pairs.
void Planner::SpoilWords() {
  auto& words = plan_.words;
  if (Odd(1)) words.pop_back();
  if (Odd(1)) words.emplace_back("-x");
  if (Odd(1)) words.emplace_back("-b2");
  if (Odd(1)) words.emplace_back("--");
  if (Odd(1)) words.emplace_back("word");
  if (Odd(1)) words.insert(words.begin() + static_cast<std::ptrdiff_t>(dice_.Count(0, 4)), "-x");
  if (Odd(1)) words.insert(words.begin() + static_cast<std::ptrdiff_t>(dice_.Count(0, 4)), "word");
  if (Odd(1)) words.insert(words.begin() + static_cast<std::ptrdiff_t>(dice_.Count(0, 4)), "-b3");
}

// ---- What the runtime refuses -------------------------------------------------------------------

void Planner::PlanRefusals() {
  if (!dice_.Chance(40)) return;
  for (size_t k = dice_.Count(0, 2); k > 0; --k) {
    const uint64_t first = dice_.Roll(1, 220);
    plan_.failures.push_back({{first, first + (dice_.Chance(20) ? dice_.Roll(0, 8) : 0)},
                              dice_.Pick<int32_t>({13, 1, -1, std::numeric_limits<int>::min()})});
  }
  for (size_t k = dice_.Count(0, 2); k > 0; --k) PlanAnswer();
}

/// One operation that fails now and then, or tells another number than before.
void Planner::PlanAnswer() {
  static const std::vector<std::string> kStatuses{"vorn_init",
                                                  "vorn_finalize",
                                                  "vorn_rt_set_device",
                                                  "vorn_rt_reset_device",
                                                  "vorn_rt_set_op_wait_timeout",
                                                  "vorn_rt_destroy_context",
                                                  "vorn_rt_destroy_stream",
                                                  "vorn_rt_malloc",
                                                  "vorn_rt_malloc",
                                                  "vorn_rt_free",
                                                  "vorn_mdl_load_from_mem",
                                                  "vorn_mdl_unload",
                                                  "vorn_ext_get_mdl_net_type",
                                                  "vorn_mdl_destroy_desc",
                                                  "vorn_destroy_data_buffer",
                                                  "vorn_mdl_destroy_dataset",
                                                  "vorn_mdl_set_dynamic_batch_size",
                                                  "vorn_mdl_set_total_t",
                                                  "vorn_mdl_execute",
                                                  "vorn_mdl_execute"};
  static const std::vector<std::string> kStatusesWithoutEffect{
      "vorn_rt_create_context",  "vorn_rt_create_stream",       "vorn_rt_get_run_mode",
      "vorn_mdl_get_desc",       "vorn_mdl_add_dataset_buffer", "vorn_mdl_get_input_dims",
      "vorn_mdl_get_output_dims"};
  static const std::vector<std::string> kHandles{
      "vorn_mdl_create_desc", "vorn_mdl_create_dataset", "vorn_create_data_buffer",
      "vorn_mdl_get_dataset_buffer", "vorn_get_data_buffer_addr"};
  static const std::vector<std::string> kCounts{"vorn_mdl_get_num_inputs",
                                                "vorn_mdl_get_num_outputs"};
  static const std::vector<std::string> kSizes{
      "vorn_mdl_get_input_size_by_index", "vorn_mdl_get_output_size_by_index",
      "vorn_mdl_get_input_default_stride", "vorn_mdl_get_output_default_stride"};
  PlannedAnswer answer;
  answer.calls.first = dice_.Roll(1, 6);
  answer.calls.last = answer.calls.first + dice_.Pick<uint64_t>({0, 0, 1, 1000});
  switch (dice_.Roll(0, 6)) {
    case 0:
    case 1:
      answer.operation = dice_.Pick(kStatuses);
      answer.number = dice_.Roll(1, 20);
      answer.effect = dice_.Chance(30);
      break;
    case 2:
      answer.operation = dice_.Pick(kStatusesWithoutEffect);
      answer.number = dice_.Roll(1, 20);
      break;
    case 3:
      answer.operation = dice_.Pick(kHandles);
      answer.isNull = true;
      break;
    case 4:
      answer.operation = dice_.Pick(kCounts);
      answer.number = dice_.Roll(0, 6);
      break;
    case 5:
      answer.operation = dice_.Pick(kSizes);
      answer.number = dice_.Pick<uint64_t>({0, 8, 16, 24, 48, 64, 4097});
      if (dice_.Chance(50)) answer.index = dice_.Roll(0, 3);
      break;
    default:
      // Of a buffer less than there is, of a dataset nothing: more would be a lie that kills.
      answer.operation = dice_.Pick<std::string>(
          {"vorn_data_type_size", "vorn_get_data_buffer_size", "vorn_mdl_get_dataset_num_buffers"});
      if (answer.operation == "vorn_data_type_size") {
        answer.number = dice_.Pick<uint64_t>({0, 4, 8, 16, 32, 64});
      } else if (answer.operation == "vorn_get_data_buffer_size") {
        answer.number = dice_.Pick<uint64_t>({0, 1});
      }
  }
  plan_.answers.push_back(answer);
}

}  // namespace

RunPlan RandomPlan(uint64_t seed) { return Planner(seed).Make(); }

}  // namespace e2e
