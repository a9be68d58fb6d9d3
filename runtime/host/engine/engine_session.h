// A model that ONNX Runtime has opened.
#ifndef VORN_RUNTIME_HOST_ENGINE_ENGINE_SESSION_H_
#define VORN_RUNTIME_HOST_ENGINE_ENGINE_SESSION_H_

#include <onnxruntime_cxx_api.h>

#include <cstddef>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/config/config.h"
#include "host/engine/engine.h"

namespace vorn::host {

/// Opens the model in `image`, which must outlive the session and was found fit to be opened; the
/// session keeps the environment alive. `shapelessInputs` are the names of the inputs that say
/// nothing of their shape, which the library shows like inputs without dimensions. Fails with
/// VORN_ERROR_MODEL for what the library refuses, and with VORN_ERROR_OUT_OF_MEMORY.
std::unique_ptr<Session> OpenSession(std::shared_ptr<Ort::Env> environment,
                                     std::span<const std::byte> image, const Config& config,
                                     const std::set<std::string>& shapelessInputs);

/// What the library makes of the model's outputs. Fails likewise.
std::vector<ResultFacts> TellOutputsOf(const Ort::Env& environment,
                                       std::span<const std::byte> image, const Config& config);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ENGINE_SESSION_H_
