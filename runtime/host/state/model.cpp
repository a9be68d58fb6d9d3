// Opening a model and choosing its plan.
#include "host/state/model.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/config/model_settings.h"
#include "host/engine/onnx_image.h"
#include "host/plan/batch_plan.h"
#include "host/plan/recurrent_plan.h"
#include "host/plan/signature.h"

namespace vorn::host {
namespace {

bool HasSymbol(const std::vector<DeclaredTensor>& tensors, std::string_view name) {
  return std::any_of(tensors.begin(), tensors.end(), [&](const DeclaredTensor& tensor) {
    return std::any_of(tensor.shape.begin(), tensor.shape.end(),
                       [&](const DeclaredDim& dim) { return dim.symbol == name; });
  });
}

void LogUnusedSizes(const Session& session, const Config& config) {
  for (const auto& [name, size] : config.dims) {
    if (HasSymbol(session.inputs(), name)) continue;
    Log(LogLevel::kInfo, "vorn_mdl_load_from_mem",
        Join("'dims' gives '", name, "' the size ", size, ", but no input leaves it open"));
  }
}

/// What the file says of itself, and the configuration over it.
ModelSettings SettingsFor(std::span<const std::byte> image, const Config& config) {
  ModelSettings settings;
  try {
    const std::optional<std::string> own = FindMetadata(image, "vorn");
    if (own) settings = ParseModelSettings(*own);
  } catch (const Failure& e) {
    throw Failure(VORN_ERROR_MODEL, e.what(), " (in the model's metadata 'vorn')");
  }
  return ParseModelSettings(config.model, settings);
}

}  // namespace

Model::Model(Engine& engine, std::span<const std::byte> image, const Config& config) {
  const ModelSettings settings = SettingsFor(image, config);
  Config effective = config;
  effective.dims.insert(settings.dims.begin(), settings.dims.end());
  session_ = engine.Open(image, effective);
  if (session_->outputs().empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output; there is nothing to execute it for");
  }
  LogUnusedSizes(*session_, effective);
  netType_ = settings.netType;
  Signature signature = SignatureOf(*session_, settings);
  if (netType_ == VORN_NET_RECURRENT) {
    plan_ = std::make_unique<RecurrentPlan>(*session_, std::move(signature), settings, effective);
  } else {
    plan_ = std::make_unique<BatchPlan>(*session_, std::move(signature), effective);
  }
}

void Model::Execute(const Call& call) {
  const std::lock_guard lock(mutex_);
  plan_->Execute(call);
}

}  // namespace vorn::host
