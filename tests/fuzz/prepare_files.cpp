// What vorn prepare makes tensors of, pictures apart: the first byte says which reader, the rest is
// the file or the text. It is refused with a line that a person can read, or what comes out is what
// it was said to be.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <optional>
#include <span>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/memory_file.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/json/json.h"
#include "kit/prepare/job.h"
#include "kit/prepare/manifest.h"
#include "kit/prepare/number_text.h"
#include "kit/prepare/picture_tensor.h"
#include "kit/prepare/random_values.h"
#include "kit/prepare/recipe.h"
#include "kit/prepare/signal.h"
#include "kit/prepare/thresholds.h"
#include "kit/prepare/wav.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

constexpr uint64_t kMostBytes = 1 << 20;

void CheckSource(const kit::SignalSource& source, size_t fileBytes) {
  const uint64_t moment = source.channels * source.format.bytes;
  Require(source.offsetBytes + source.samples * moment <= fileBytes, "the file has the samples");
  kit::SignalRecipe recipe;
  recipe.channel = kit::SignalRecipe::Channel::kMean;
  const kit::Signal signal = kit::ReadSignal(source, recipe, kMostBytes);
  Require(signal.samples.size() == source.samples && signal.unread == 0, "all samples are read");
}

void ReadWav(const std::string& bytes) {
  const MemoryFile file(bytes);
  const kit::SignalSource source = kit::OpenWav(file.Path());
  Require(kit::IsWav(bytes), "it begins as one");
  CheckSource(source, bytes.size());
}

template <typename Number>
std::string Written(const kit::Array& array) {
  const uint64_t columns = array.shape.size() == 2 ? array.shape[1] : array.Elements();
  std::string text;
  for (uint64_t i = 0; i < array.Elements(); ++i) {
    Number number{};
    std::memcpy(&number, array.bytes.data() + i * sizeof(number), sizeof(number));
    std::array<char, 64> digits{};
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    text.append(digits.data(), end);
    text += (i + 1) % columns == 0 ? '\n' : ',';
  }
  return text;
}

// Doubles may be whole, and are whole numbers when they are read again.
void ReadNumbers(const std::string& text) {
  const kit::Array array = kit::ParseNumberText(text, "the text", kMostBytes);
  Require(array.Elements() > 0 && kit::CountElements(array.shape) == array.Elements(),
          "the shape holds all numbers");
  const bool isWhole = array.type == kit::ElementType::kInt64;
  const std::string written = isWhole ? Written<int64_t>(array) : Written<double>(array) + "0.5";
  const kit::Array again = kit::ParseNumberText(written, "the text", kMostBytes + 8);
  Require(again.type == array.type, "as it was written, the type");
  Require(!isWhole || again.shape == array.shape, "as it was written, the shape");
  Require(std::memcmp(again.bytes.data(), array.bytes.data(), array.bytes.size()) == 0,
          "as it was written, the numbers");
}

void MakeRandom(const std::string& text) {
  const kit::RandomRecipe recipe = kit::ParseRandomRecipe(kit::ParseJson(text));
  const std::string written = kit::ToText(kit::ToJson(recipe));
  Require(kit::ToText(kit::ToJson(kit::ParseRandomRecipe(kit::ParseJson(written)))) == written,
          "what was written is read as the same");
  std::vector<double> values(50);
  kit::RandomSeries(recipe, "x", 1).Fill(values);
  using Distribution = kit::RandomRecipe::Distribution;
  const bool hasRange = recipe.distribution == Distribution::kUniform ||
                        recipe.distribution == Distribution::kIntegers;
  for (const double value : values) {
    Require(!hasRange || (value >= recipe.low && value <= recipe.high), "the range");
    Require(recipe.distribution != Distribution::kIntegers || value == std::trunc(value),
            "a whole number");
    Require(!std::isnan(value), "a number");
  }
}

// Twelve samples, in one dimension and in two.
void CutArray(const std::string& text) {
  const kit::SignalRecipe recipe = kit::ParseSignalRecipe(kit::ParseJson(text));
  kit::Array array;
  array.type = kit::ElementType::kInt8;
  array.bytes.assign(12, std::byte{7});
  array.shape = {12};
  if (recipe.channelAxis != kit::SignalRecipe::Axis::kNone) array.shape = {3, 4};
  const kit::Signal signal = kit::SignalOf(array, recipe, "the array", kMostBytes);
  const kit::Frames frames = kit::CutIntoFrames(signal, recipe, "the array", kMostBytes);
  Require(frames.values.size() == frames.count * frames.window, "whole frames");
  Require(frames.window == recipe.window && frames.count > 0, "frames as asked");
  Require(frames.leftOut <= 12, "no more is left out than there is");
  const auto zeros =
      static_cast<uint64_t>(std::count(frames.values.begin(), frames.values.end(), 0.0F));
  Require(frames.filledUp == zeros, "zeros are counted");
}

void ReadRaw(const std::string& text) {
  const std::string bytes(24, '\x01');
  const MemoryFile file(bytes);
  const kit::SignalSource source = kit::OpenRawSignal(file.Path(), kit::ParseJson(text));
  CheckSource(source, bytes.size());
}

void WriteThresholds(const std::string& text) {
  kit::ModelDescription model;
  model.inputs.resize(3);
  model.inputs[0].role = kit::TensorRole::kThresholds;
  model.inputs[0].name = "rpn:0";
  model.inputs[0].shape = {4, 2};
  const auto files = kit::MakeThresholds(kit::ParseJson(text), model);
  Require(files.size() == 1, "a file an input");
  std::istringstream stream(files[0].text);
  uint64_t count = 0;
  for (float value = 0; stream >> value;) ++count;
  Require(stream.eof() && count == 8, "as many numbers as the model takes");
}

bool IsLarge(const kit::Recipe& recipe) {
  constexpr uint32_t kMostSide = 128;
  const auto isLarge = [](const std::optional<kit::PictureSize>& size) {
    return size && (size->width > kMostSide || size->height > kMostSide);
  };
  return (recipe.resize && (recipe.resize->shorter > kMostSide || isLarge(recipe.resize->size))) ||
         (recipe.crop && isLarge(recipe.crop->size));
}

// What is read says all that it does, and makes a tensor of the size that the input takes.
void ReadRecipe(const std::string& text) {
  const kit::Recipe recipe = kit::RecipeFromJson(kit::ParseJson(text));
  const std::string written = kit::ToText(kit::ToJson(recipe));
  Require(kit::ToText(kit::ToJson(kit::RecipeFromJson(kit::ParseJson(written)))) == written,
          "a recipe survives being written");
  if (IsLarge(recipe)) return;
  kit::Picture picture = kit::MakePicture(7, 5, 4, kit::PixelType::kUint8);
  for (size_t i = 0; i < picture.pixels.size(); ++i) picture.pixels[i] = std::byte(i * 37);
  const kit::PictureTarget target{.size = {6, 8},
                                  .channels = kit::ChannelsOf(recipe.colours),
                                  .areChannelsFirst = true,
                                  .type = kit::ElementType::kFloat16};
  for (int orientation = 1; orientation <= 8; orientation += 5) {
    std::vector<std::byte> tensor;
    (void)kit::MakeTensor(picture, orientation, recipe, target, tensor);
    Require(tensor.size() == target.Bytes(), "a tensor of the size that is taken");
  }
}

void ReadInputs(const std::string& text) {
  for (const kit::InputRequest& input : kit::InputsFromJson(kit::ParseJson(text), "/nowhere")) {
    Require(input.random || input.source.starts_with("/"), "a source is a path");
    Require(!input.rawSignal || input.signal, "raw samples are of a signal");
  }
}

void ReadItem(const std::string& text) {
  const kit::ItemRecord record = kit::ItemFromJson(kit::ParseJson(text));
  const std::string written = kit::ToText(kit::ToJson(record));
  Require(kit::ToText(kit::ToJson(kit::ItemFromJson(kit::ParseJson(written)))) == written,
          "a record survives being written");
}

constexpr std::array kSourceReaders{ReadWav,         ReadNumbers, MakeRandom, CutArray, ReadRaw,
                                    WriteThresholds, ReadRecipe,  ReadInputs, ReadItem};

}  // namespace

void PrepareFiles(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const std::string rest(bytes.begin() + 1, bytes.end());
  try {
    kSourceReaders[bytes[0] % kSourceReaders.size()](rest);
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
  } catch (const kit::JsonError& error) {
    RequireReason(error.what());
  } catch (const std::exception& error) {
    throw Violation{"another exception than a fault: " + std::string(error.what())};
  }
}

}  // namespace fuzz
