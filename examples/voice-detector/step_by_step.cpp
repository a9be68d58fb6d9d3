// The voice detector run frame by frame straight through ONNX Runtime, to compare with.
//
//     voice-detector-reference MODEL FRAMES OUT
//
// FRAMES holds float32 [frames, 512]; OUT gets the probability of speech of each, float32. The
// runtime's configuration says the same in a few keys; here it is written out.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "reference/engine.h"
#include "reference/tensor_file.h"

namespace {

constexpr size_t kFrame = 512;
constexpr size_t kContext = 64;

std::vector<float> ReadFrames(const char* path) {
  const std::string bytes = reference::ReadBytes(path);
  std::vector<float> frames(bytes.size() / sizeof(float));
  std::memcpy(frames.data(), bytes.data(), frames.size() * sizeof(float));
  return frames;
}

std::vector<float> Probabilities(const char* modelPath, const std::vector<float>& samples) {
  const Ort::Env env(ORT_LOGGING_LEVEL_FATAL);
  Ort::Session session(env, modelPath, reference::Options());
  const auto memory = Ort::MemoryInfo::CreateCpu(OrtArenaAllocator, OrtMemTypeDefault);

  std::vector<float> input(kContext + kFrame);
  std::vector<float> state(size_t{2} * 128);
  int64_t rate = 16000;
  const std::array<int64_t, 2> inputShape = {1, kContext + kFrame};
  const std::array<int64_t, 3> stateShape = {2, 1, 128};
  const std::array<const char*, 3> inputNames = {"input", "state", "sr"};
  const std::array<const char*, 2> outputNames = {"output", "stateN"};
  std::vector<float> probabilities;
  for (size_t at = 0; at + kFrame <= samples.size(); at += kFrame) {
    std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(at), kFrame,
                input.begin() + kContext);
    std::array<Ort::Value, 3> inputs = {
        Ort::Value::CreateTensor(memory, input.data(), input.size(), inputShape.data(), 2),
        Ort::Value::CreateTensor(memory, state.data(), state.size(), stateShape.data(), 3),
        Ort::Value::CreateTensor(memory, &rate, 1, nullptr, 0)};
    const std::vector<Ort::Value> outputs =
        session.Run(Ort::RunOptions{nullptr}, inputNames.data(), inputs.data(), inputs.size(),
                    outputNames.data(), outputNames.size());
    probabilities.push_back(*outputs[0].GetTensorData<float>());
    std::copy_n(outputs[1].GetTensorData<float>(), state.size(), state.begin());
    std::copy(input.end() - kContext, input.end(), input.begin());
  }
  return probabilities;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "give MODEL FRAMES OUT\n");
    return 1;
  }
  try {
    reference::LoadEngine();
    std::vector<float> samples = ReadFrames(argv[2]);
    samples.resize(samples.size() / 2);  // the recording is there twice
    const std::vector<float> probabilities = Probabilities(argv[1], samples);
    std::ofstream(argv[3], std::ios::binary)
        .write(reinterpret_cast<const char*>(probabilities.data()),
               static_cast<std::streamsize>(probabilities.size() * sizeof(float)));
    return 0;
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s\n", e.what());
    return 1;
  }
}
