// A library that is the engine by its name and its entry, and too old: it knows no table of ours.
#include <onnxruntime_c_api.h>

const OrtApiBase* ORT_API_CALL OrtGetApiBase() noexcept {
  static const OrtApiBase base = {
      .GetApi = [](uint32_t) noexcept -> const OrtApi* { return nullptr; },
      .GetVersionString = []() noexcept -> const char* { return "1.2.3"; }};
  return &base;
}
