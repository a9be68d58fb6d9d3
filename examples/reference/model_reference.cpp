// A model run once straight through ONNX Runtime, to compare with.
//
//     model-reference MODEL FOLDER INPUT...
//
// The inputs are files with dense tensors in the model's order; dimensions that the model leaves
// open count as 1. FOLDER gets a file <name>.bin an output, with the values in the model's type,
// and a line on standard output tells its shape.
#include <cstdio>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/engine.h"
#include "reference/tensor_file.h"

namespace {

struct Names {
  std::vector<std::string> owned;

  std::vector<const char*> Pointers() const {
    std::vector<const char*> pointers;
    for (const std::string& name : owned) pointers.push_back(name.c_str());
    return pointers;
  }
};

/// The tensor that input `index` wants, over the bytes of a file.
Ort::Value InputOver(std::string& bytes, const Ort::Session& session, size_t index) {
  const Ort::TypeInfo type = session.GetInputTypeInfo(index);
  const auto info = type.GetTensorTypeAndShapeInfo();
  std::vector<int64_t> shape = info.GetShape();
  for (int64_t& dim : shape) {
    if (dim < 0) dim = 1;
  }
  const auto memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);
  // Refuses fewer bytes than the shape takes.
  return Ort::Value::CreateTensor(memory, bytes.data(), bytes.size(), shape.data(), shape.size(),
                                  info.GetElementType());
}

void Write(const std::string& folder, const std::string& name, const Ort::Value& output) {
  reference::WriteTensor(folder + "/" + name + ".bin", output);
  std::printf("%s [", name.c_str());
  const char* between = "";
  for (const int64_t dim : output.GetTensorTypeAndShapeInfo().GetShape()) {
    std::printf("%s%lld", between, static_cast<long long>(dim));
    between = ", ";
  }
  std::printf("]\n");
}

void RunOnce(const char* modelPath, const std::string& folder, std::vector<std::string> inputs) {
  const Ort::Env env(ORT_LOGGING_LEVEL_FATAL);
  Ort::Session session(env, modelPath, reference::Options());
  if (inputs.size() != session.GetInputCount()) {
    throw std::runtime_error("the model has " + std::to_string(session.GetInputCount()) +
                             " inputs; give a file for each");
  }
  const Ort::AllocatorWithDefaultOptions allocator;
  Names inputNames;
  Names outputNames;
  std::vector<Ort::Value> values;
  for (size_t i = 0; i < inputs.size(); ++i) {
    inputNames.owned.emplace_back(session.GetInputNameAllocated(i, allocator).get());
    values.push_back(InputOver(inputs[i], session, i));
  }
  for (size_t i = 0; i < session.GetOutputCount(); ++i) {
    outputNames.owned.emplace_back(session.GetOutputNameAllocated(i, allocator).get());
  }
  const std::vector<Ort::Value> outputs =
      session.Run(Ort::RunOptions{nullptr}, inputNames.Pointers().data(), values.data(),
                  values.size(), outputNames.Pointers().data(), outputNames.owned.size());
  for (size_t i = 0; i < outputs.size(); ++i) Write(folder, outputNames.owned[i], outputs[i]);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::fprintf(stderr, "give MODEL FOLDER INPUT...\n");
    return 1;
  }
  try {
    reference::LoadEngine();
    std::vector<std::string> inputs;
    for (int i = 3; i < argc; ++i) inputs.push_back(reference::ReadBytes(argv[i]));
    RunOnce(argv[1], argv[2], inputs);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
