// From an image to an id, step by step.
#include "host/state/loading.h"

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>
#include <utility>

#include "host/common/failure.h"
#include "host/state/probe.h"
#include "host/state/tables.h"

namespace vorn::host {
namespace {

using Image = std::span<const std::byte>;

/// What a model is loaded with, taken out of the tables.
struct Surroundings {
  std::shared_ptr<Engine> engine;
  Config config;
  std::shared_ptr<MemoryBudget> budget;  // null where nothing is counted
  Timeout timeout;
};

Image CheckImage(const void* image, uint64_t size) {
  const Look tables(Needs::kContext);
  if (image == nullptr || size == 0) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the image is ", image, " of ", size,
                  " bytes; give the bytes of an ONNX file");
  }
  const uint64_t known = tables->blocks.BytesFrom(image).value_or(size);
  if (known < size) {
    throw Failure(VORN_ERROR_INVALID_ARGUMENT, "the image has ", size,
                  " bytes; its block ends after ", known);
  }
  return {static_cast<const std::byte*>(image), size};
}

Surroundings TakeSurroundings(Image image) {
  const Change tables(Needs::kContext);
  tables->blocks.DoNotKeep(image.data());
  return {.engine = tables->engine,
          .config = tables->config,
          .budget = tables->config.memoryLimit ? tables->devices.CurrentMemory() : nullptr,
          .timeout = tables->timeout};
}

/// With a probe, models are loaded one after the other. The execution library makes its constants
/// as the first models are opened; a probe that was forked meanwhile would wait for them for ever.
std::unique_lock<std::mutex> TakeTurn(const Surroundings& with) {
  static std::mutex& turn = *new std::mutex;
  return with.config.probeSeconds == 0 ? std::unique_lock<std::mutex>() : std::unique_lock(turn);
}

std::shared_ptr<Model> Open(Image image, const Surroundings& with) {
  return std::make_shared<Model>(*with.engine, image, with.config, with.budget, with.timeout);
}

/// What a model does to the process that it is tried in decides whether this one takes it.
void TryElsewhere(Image image, const Surroundings& with) {
  const uint32_t seconds = with.config.probeSeconds;
  if (seconds == 0) return;
  const ProbeResult result = Probe(seconds, [&] { Open(image, with)->Rehearse(with.timeout); });
  if (result.end == ProbeEnd::kEnded) {
    throw Failure(VORN_ERROR_MODEL, "the model ended the process in which it was tried (",
                  result.how, "); the execution library cannot run it");
  }
  if (result.end == ProbeEnd::kTimeout) {
    throw Failure(VORN_ERROR_TIMEOUT, "loading and executing the model once takes longer than ",
                  seconds, " s; give 'probe' more");
  }
}

uint32_t Enter(std::shared_ptr<Model> model, const Surroundings& with) {
  const Change tables;
  if (tables->engine != with.engine) {
    throw Failure(VORN_ERROR_NOT_INITIALIZED, "the runtime went down while the model was loaded");
  }
  return tables->models.Add(std::move(model));
}

}  // namespace

uint32_t LoadModel(const void* image, uint64_t size) {
  const Image checked = CheckImage(image, size);
  const Surroundings with = TakeSurroundings(checked);
  const std::unique_lock<std::mutex> turn = TakeTurn(with);
  TryElsewhere(checked, with);
  std::shared_ptr<Model> model = Open(checked, with);
  return Enter(std::move(model), with);
}

}  // namespace vorn::host
