// Executes a model straight through ONNX Runtime, to compare with.
//
//     onnx-bare-run MODEL INPUTS OUT
//
// INPUTS is a text of one line an input, in any order, fields separated by tabs:
//
//     name    element type (ONNX's number)    dimensions, "2,3", empty for a scalar    file
//
// A file holds the tensor dense. Output n (from 0) is left dense as OUT/n.bin, and standard output
// gets the same fields of each. Inputs that are not named are left to the model's own values.
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include "reference/engine.h"
#include "reference/tensor_file.h"

namespace {

using Dims = std::vector<int64_t>;

struct Input {
  std::string name;
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  Dims dims;
  std::string bytes;
};

Dims ParseDims(const std::string& text) {
  Dims dims;
  std::istringstream pieces(text);
  for (std::string piece; std::getline(pieces, piece, ',');) dims.push_back(std::stoll(piece));
  return dims;
}

std::vector<Input> ReadInputs(const char* path) {
  std::istringstream lines(reference::ReadBytes(path));
  std::vector<Input> inputs;
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    std::string name;
    std::string type;
    std::string dims;
    std::string file;
    std::getline(fields, name, '\t');
    std::getline(fields, type, '\t');
    std::getline(fields, dims, '\t');
    std::getline(fields, file, '\t');
    inputs.push_back({.name = name,
                      .type = static_cast<ONNXTensorElementDataType>(std::stoi(type)),
                      .dims = ParseDims(dims),
                      .bytes = reference::ReadBytes(file)});
  }
  return inputs;
}

std::vector<Ort::Value> Run(Ort::Session& session, std::vector<Input>& inputs,
                            const std::vector<std::string>& outputNames) {
  const auto memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
  std::vector<const char*> names;
  std::vector<Ort::Value> values;
  for (Input& input : inputs) {
    names.push_back(input.name.c_str());
    values.push_back(Ort::Value::CreateTensor(memory, input.bytes.data(), input.bytes.size(),
                                              input.dims.data(), input.dims.size(), input.type));
  }
  std::vector<const char*> wanted;
  for (const std::string& name : outputNames) wanted.push_back(name.c_str());
  return session.Run(Ort::RunOptions{nullptr}, names.data(), values.data(), values.size(),
                     wanted.data(), wanted.size());
}

std::vector<std::string> OutputNames(const Ort::Session& session) {
  const Ort::AllocatorWithDefaultOptions allocator;
  std::vector<std::string> names;
  for (size_t i = 0; i < session.GetOutputCount(); ++i) {
    names.emplace_back(session.GetOutputNameAllocated(i, allocator).get());
  }
  return names;
}

std::string DimsText(const Dims& dims) {
  std::string text;
  for (const int64_t dim : dims) text += (text.empty() ? "" : ",") + std::to_string(dim);
  return text;
}

void Leave(const std::string& name, const Ort::Value& value, const std::string& path) {
  reference::WriteTensor(path, value);
  const auto info = value.GetTensorTypeAndShapeInfo();
  std::printf("%s\t%d\t%s\t%s\n", name.c_str(), static_cast<int>(info.GetElementType()),
              DimsText(info.GetShape()).c_str(), path.c_str());
}

void RunModel(const char* model, const char* inputsFile, const std::string& out) {
  const Ort::Env env(ORT_LOGGING_LEVEL_FATAL);
  Ort::Session session(env, model, reference::Options());
  std::vector<Input> inputs = ReadInputs(inputsFile);
  const std::vector<std::string> names = OutputNames(session);
  const std::vector<Ort::Value> results = Run(session, inputs, names);
  for (size_t i = 0; i < results.size(); ++i) {
    Leave(names[i], results[i], out + "/" + std::to_string(i) + ".bin");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "give MODEL INPUTS OUT\n");
    return 1;
  }
  try {
    reference::LoadEngine();
    RunModel(argv[1], argv[2], argv[3]);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
