#include "e2e/run_plan.h"

#include <array>

#include "support/files.h"

namespace e2e {
namespace {

/// Every byte as an escape: whatever a name holds, the script can say it.
std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += "\\x" + support::Hex(std::string(1, c));
  return quoted + "\"";
}

std::string LineOf(const char* kind, const PlannedTensor& tensor) {
  std::string dims;
  for (const int64_t dim : tensor.dims) dims += (dims.empty() ? "" : ",") + std::to_string(dim);
  std::string line =
      std::string(kind) + " name=" + Quoted(tensor.name) + " dims=" + dims +
      " type=" + std::to_string(tensor.type) + " stride=" + std::to_string(tensor.stride) +
      " size=" + std::to_string(tensor.size) + " format=" + std::to_string(tensor.format);
  if (tensor.rank) line += " rank=" + std::to_string(*tensor.rank);
  if (tensor.fullName) line += " full-name=" + Quoted(*tensor.fullName);
  return line + "\n";
}

std::string RangeOf(const CallRange& calls) {
  return std::to_string(calls.first) + "-" + std::to_string(calls.last);
}

std::string LineOf(const PlannedAnswer& answer) {
  std::string line = "answer " + answer.operation;
  if (answer.index) line += " index=" + std::to_string(*answer.index);
  line += " " + RangeOf(answer.calls) + " ";
  line += answer.isNull ? "null" : std::to_string(answer.number);
  return line + (answer.effect ? " effect" : "") + "\n";
}

}  // namespace

std::string ScriptOf(const RunPlan& plan) {
  std::string text = "net " + std::to_string(plan.netType) + "\n";
  text += "run-mode " + std::to_string(plan.runMode) + "\n";
  text += "limit " + std::to_string(plan.limitBytes) + "\n";
  for (const auto& [type, bits] : plan.bits) {
    text += "bits " + std::to_string(type) + " " + std::to_string(bits) + "\n";
  }
  for (const PlannedTensor& tensor : plan.inputs) text += LineOf("input", tensor);
  for (const PlannedTensor& tensor : plan.outputs) text += LineOf("output", tensor);
  for (size_t i = 0; i < plan.outputBytes.size(); ++i) {
    if (plan.outputBytes[i].empty()) continue;
    text += "write " + std::to_string(i) + " bytes " + support::Hex(plan.outputBytes[i]) + "\n";
  }
  for (const PlannedFailure& failure : plan.failures) {
    text += "fail " + RangeOf(failure.calls) + " " + std::to_string(failure.status) + "\n";
  }
  for (const PlannedAnswer& answer : plan.answers) text += LineOf(answer);
  return text + "see inputs hex\nsee outputs hex\n";
}

std::string Describe(const RunPlan& plan) {
  std::string text = "vorn-run";
  for (const std::string& word : plan.words) text += " '" + word + "'";
  text += "\n" + ScriptOf(plan);
  for (const auto& [name, bytes] : plan.files) {
    text += name + ": " + std::to_string(bytes.size()) + " bytes";
    text += ": " + support::Hex(bytes).substr(0, 400) + "\n";
    if (name.find(".txt") != std::string::npos) text += "[" + bytes + "]\n";
  }
  for (const std::string& name : plan.folders) text += name + "/\n";
  return text;
}

uint64_t BitsOf(const RunPlan& plan, uint32_t type) {
  // float32, float16, int8, int32, uint8, uint32, int16, uint16, int64, uint64, float64, bool
  static constexpr std::array<uint64_t, 12> kBits{32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8};
  if (const auto other = plan.bits.find(type); other != plan.bits.end()) return other->second;
  return type < kBits.size() ? kBits[type] : 0;
}

}  // namespace e2e
