#include "support/model_script.h"

#include "support/files.h"

namespace support {
namespace {

std::string QuoteForScript(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += "\\x" + Hex(std::string(1, c));
  return quoted + "\"";
}

std::string Describe(const TensorSpec& tensor) {
  std::string dims;
  for (const int64_t dim : tensor.dims) dims += (dims.empty() ? "" : ",") + std::to_string(dim);
  return "name=" + QuoteForScript(tensor.name) + " dims=" + dims +
         " type=" + std::to_string(tensor.type) + " stride=" + std::to_string(tensor.stride) +
         " size=" + std::to_string(tensor.size) + " format=" + std::to_string(tensor.format);
}

}  // namespace

ModelScript& ModelScript::Input(const TensorSpec& tensor) {
  inputs_.push_back(tensor);
  return Line("input " + Describe(tensor));
}

ModelScript& ModelScript::Output(const TensorSpec& tensor) {
  outputs_.push_back(tensor);
  return Line("output " + Describe(tensor));
}

ModelScript& ModelScript::Scratch(uint64_t taskSize, uint64_t workSize) {
  const auto dim = [](uint64_t size) { return std::vector<int64_t>{static_cast<int64_t>(size)}; };
  Input({"task", dim(taskSize), 4, 16, taskSize, 2});
  return Input({"work", dim(workSize), 4, 16, workSize, 2});
}

ModelScript& ModelScript::Answer(const std::string& operation, const std::string& calls,
                                 const std::string& value) {
  return Line("answer " + operation + " " + calls + " " + value);
}

ModelScript& ModelScript::AnswerAt(const std::string& operation, uint64_t index,
                                   const std::string& calls, const std::string& value) {
  return Line("answer " + operation + " index=" + std::to_string(index) + " " + calls + " " +
              value);
}

ModelScript& ModelScript::WriteRows(uint64_t output, uint64_t rowBytes, uint64_t strideBytes,
                                    const std::string& bytes) {
  return Line("write " + std::to_string(output) + " frame=" + std::to_string(rowBytes) + "," +
              std::to_string(strideBytes) + " bytes " + Hex(bytes));
}

ModelScript& ModelScript::Line(const std::string& line) {
  text_ += line + "\n";
  return *this;
}

}  // namespace support
