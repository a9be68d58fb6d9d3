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
#include <dlfcn.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#define ORT_API_MANUAL_INIT
#include <onnxruntime_cxx_api.h>

namespace {

using Dims = std::vector<int64_t>;

struct Input {
  std::string name;
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  Dims dims;
  std::string bytes;
};

void LoadEngine() {
  void* library = dlopen(VORN_ENGINE_SONAME, RTLD_NOW);
  if (library == nullptr) throw std::runtime_error(dlerror());
  using GetBase = const OrtApiBase*(ORT_API_CALL*)();
  const auto getBase = reinterpret_cast<GetBase>(dlsym(library, "OrtGetApiBase"));
  Ort::InitApi(getBase()->GetApi(ORT_API_VERSION));
}

std::string ReadBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

Dims ParseDims(const std::string& text) {
  Dims dims;
  std::istringstream pieces(text);
  for (std::string piece; std::getline(pieces, piece, ',');) dims.push_back(std::stoll(piece));
  return dims;
}

std::vector<Input> ReadInputs(const char* path) {
  std::istringstream lines(ReadBytes(path));
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
                      .bytes = ReadBytes(file)});
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

size_t ElementBytes(ONNXTensorElementDataType type) {
  switch (type) {
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT8:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT8:
      return 1;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_BFLOAT16:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT16:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT16:
      return 2;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT32:
      return 4;
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64:
    case ONNX_TENSOR_ELEMENT_DATA_TYPE_UINT64:
      return 8;
    default:
      throw std::runtime_error("element type " + std::to_string(type) + " is not served");
  }
}

void Leave(const std::string& name, const Ort::Value& value, const std::string& path) {
  if (!value.IsTensor()) throw std::runtime_error("output " + name + " is no tensor");
  const auto info = value.GetTensorTypeAndShapeInfo();
  std::ofstream file(path, std::ios::binary);
  file.write(
      static_cast<const char*>(value.GetTensorRawData()),
      static_cast<std::streamsize>(info.GetElementCount() * ElementBytes(info.GetElementType())));
  if (!file.flush()) throw std::runtime_error("cannot write " + path);
  std::printf("%s\t%d\t%s\t%s\n", name.c_str(), static_cast<int>(info.GetElementType()),
              DimsText(info.GetShape()).c_str(), path.c_str());
}

void RunModel(const char* model, const char* inputsFile, const std::string& out) {
  const Ort::Env env(ORT_LOGGING_LEVEL_FATAL);
  Ort::SessionOptions options;  // what the host runtime asks for with the configuration {}
  options.SetIntraOpNumThreads(1);
  options.SetInterOpNumThreads(1);
  options.SetGraphOptimizationLevel(ORT_ENABLE_ALL);
  Ort::Session session(env, model, options);
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
    LoadEngine();
    RunModel(argv[1], argv[2], argv[3]);
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
