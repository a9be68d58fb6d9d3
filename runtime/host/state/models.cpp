// Giving ids to models.
#include "host/state/models.h"

#include <utility>

#include "host/common/failure.h"

namespace vorn::host {

uint32_t Models::Add(std::shared_ptr<Model> model) {
  do {
    ++lastId_;  // 0 is what callers preset an id with, so no model has it
  } while (lastId_ == 0 || live_.Look(lastId_) != nullptr);
  live_.Add(lastId_, std::move(model));
  return lastId_;
}

void Models::Remove(uint32_t modelId) {
  static_cast<void>(At(modelId));
  live_.Remove(modelId);
}

std::shared_ptr<Model> Models::At(uint32_t modelId) const {
  std::shared_ptr<Model> live = live_.Find(modelId);
  if (live == nullptr) {
    throw Failure(VORN_ERROR_INVALID_HANDLE, "no model is loaded under the id ", modelId);
  }
  return live;
}

}  // namespace vorn::host
