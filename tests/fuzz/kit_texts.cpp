// The texts that the kit reads: the first byte says which reader, the rest is its text. It is
// refused with a line that a person can read, or what was read of it is written and read once more,
// which has to lead to the same text.
#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <string_view>

#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/json/json.h"
#include "kit/model/model_json.h"
#include "kit/model/model_text.h"
#include "kit/model/run_log.h"
#include "kit/run/run_directory.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

std::string AsJson(const std::string& text) { return kit::ToText(kit::ParseJson(text)); }
std::string AsIndentedJson(const std::string& text) { return kit::ToText(kit::ParseJson(text), 2); }
std::string AsModel(const std::string& text) { return kit::ToJson(kit::FromJson(text)); }
std::string AsRun(const std::string& text) { return kit::ToJson(kit::RunFromJson(text)); }
std::string AsSample(const std::string& text) { return kit::ToLine(kit::SampleFromLine(text)); }
std::string AsTimes(const std::string& text) { return kit::ToLine(kit::TimesFromLine(text)); }
std::string AsMachine(const std::string& text) { return kit::ToLine(kit::MachineFromLine(text)); }

// What a log tells of a model is printed in every way that there is, and comes back as the same
// model.
std::string AsLog(const std::string& text) {
  const kit::ModelDescription model = kit::ReadRunLog(text);
  (void)kit::DescribeModel(model, 3);
  for (const auto* tensors : {&model.inputs, &model.outputs}) {
    for (const kit::TensorDescription& tensor : *tensors) (void)kit::DrawLayout(tensor, 2);
  }
  return kit::ToJson(model);
}

struct Reader {
  std::string (*read)(const std::string& text);
  std::string (*readAgain)(const std::string& text);  // what it has written
};

constexpr std::array<Reader, 8> kReaders{{
    {AsJson, AsJson},
    {AsIndentedJson, AsIndentedJson},
    {AsModel, AsModel},
    {AsRun, AsRun},
    {AsSample, AsSample},
    {AsTimes, AsTimes},
    {AsMachine, AsMachine},
    {AsLog, AsModel},
}};

}  // namespace

void KitTexts(std::span<const uint8_t> bytes) {
  if (bytes.empty()) return;
  const Reader& reader = kReaders[bytes[0] % kReaders.size()];
  const std::string text(bytes.begin() + 1, bytes.end());
  std::string written;
  try {
    written = reader.read(text);
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
    return;
  } catch (const kit::JsonError& error) {
    RequireReason(error.what());
    return;
  }
  try {
    Require(reader.readAgain(written) == written, "what was written is read as the same");
  } catch (const std::exception& error) {
    throw Violation{"what was written is refused: " + std::string(error.what())};
  }
}

}  // namespace fuzz
