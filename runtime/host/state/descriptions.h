// What callers were told of models.
#ifndef VORN_RUNTIME_HOST_STATE_DESCRIPTIONS_H_
#define VORN_RUNTIME_HOST_STATE_DESCRIPTIONS_H_

#include <memory>
#include <vector>

#include "host/state/handle.h"
#include "host/tensor/description.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// A caller's description. What it was filled with stays, so that names handed out stay valid; the
/// last one counts.
class Desc {
 public:
  void Fill(std::shared_ptr<const ModelDescription> model);
  /// Fails with VORN_ERROR_INVALID_ARGUMENT for one that was not filled yet.
  const std::shared_ptr<const ModelDescription>& Model() const;

 private:
  std::vector<std::shared_ptr<const ModelDescription>> filled_;
};

/// All that live. A handle is refused as it is by `Registry`. Not synchronised.
class Descriptions {
 public:
  /// An empty one.
  vorn_mdl_desc* Create();
  void Destroy(vorn_mdl_desc* desc) { live_.RequireRemoved(desc); }
  Desc& At(const vorn_mdl_desc* desc) const { return live_.Require(desc); }

  std::vector<const vorn_mdl_desc*> Handles() const { return live_.Keys(); }

 private:
  Registry<const vorn_mdl_desc*, Desc> live_{"description"};
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_DESCRIPTIONS_H_
