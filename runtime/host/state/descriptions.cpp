// Filling descriptions, and what they hold.
#include "host/state/descriptions.h"

#include <utility>

#include "host/common/failure.h"

namespace vorn::host {

void Desc::Fill(std::shared_ptr<const ModelDescription> model) {
  // Asking again and again for the same takes no more memory.
  if (filled_.empty() || filled_.back() != model) filled_.push_back(std::move(model));
}

const std::shared_ptr<const ModelDescription>& Desc::Model() const {
  if (filled_.empty()) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the description is empty; get one of a model");
  }
  return filled_.back();
}

vorn_mdl_desc* Descriptions::Create() {
  auto* desc = NewHandle<vorn_mdl_desc>();
  live_.Add(desc, std::make_shared<Desc>());
  return desc;
}

}  // namespace vorn::host
