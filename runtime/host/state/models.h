// The models that are loaded, by their ids.
#ifndef VORN_RUNTIME_HOST_STATE_MODELS_H_
#define VORN_RUNTIME_HOST_STATE_MODELS_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "host/state/handle.h"
#include "host/state/model.h"

namespace vorn::host {

/// The id of no loaded model fails with VORN_ERROR_INVALID_HANDLE. Not synchronised.
class Models {
 public:
  /// Under an id that no loaded model has, counted up from 1.
  uint32_t Add(std::shared_ptr<Model> model);
  void Remove(uint32_t modelId);
  void Clear() { live_.Clear(); }

  /// Shared, so that it outlives an unload elsewhere.
  std::shared_ptr<Model> At(uint32_t modelId) const;

  std::vector<uint32_t> Ids() const { return live_.Keys(); }

 private:
  Registry<uint32_t, Model> live_{"model"};
  uint32_t lastId_ = 0;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_MODELS_H_
