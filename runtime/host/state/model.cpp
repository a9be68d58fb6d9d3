// Opening a model and choosing its plan.
#include "host/state/model.h"

#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "host/common/excerpt.h"
#include "host/common/failure.h"
#include "host/common/log.h"
#include "host/config/model_settings.h"
#include "host/config/ranges.h"
#include "host/engine/onnx_image.h"
#include "host/graph/graph_edits.h"
#include "host/plan/batch_plan.h"
#include "host/plan/recurrent_plan.h"
#include "host/plan/signature.h"
#include "host/state/deadline.h"

namespace vorn::host {
namespace {

/// Not refused, since a configuration serves every model.
void LogUnusedSizes(std::span<const std::byte> image, const Config& config) {
  if (config.dims.empty() || !IsLogged(LogLevel::kError)) return;
  const std::set<std::string> open = OpenDimNames(image);
  for (const auto& [name, size] : config.dims) {
    if (open.contains(name)) continue;
    Log(LogLevel::kError, "vorn_mdl_load_from_mem",
        Join("'dims' gives '", name, "' the size ", size,
             ", but no input or output has it; the names are ", Quoted(open)));
  }
}

/// What the file says of itself, and the configuration over it.
ModelSettings SettingsFor(std::span<const std::byte> image, const Config& config) {
  ModelSettings settings;
  const std::optional<std::string> own = FindMetadata(image, "vorn");
  try {
    if (own) settings = ParseModelSettings(*own);
    if (!settings.rangesFile.empty()) {
      throw Failure(VORN_ERROR_MODEL, "'model.round.int8' names the file '",
                    Excerpt(settings.rangesFile),
                    "'; a model may not have files read, so give the ", "ranges themselves");
    }
  } catch (const Failure& e) {
    throw Failure(VORN_ERROR_MODEL, e.what(), " (in the model's metadata 'vorn')");
  }
  settings = ParseModelSettings(config.model, settings);
  if (settings.rangesFile.empty()) return settings;
  MeasuredRanges measured = ReadRangesFile(settings.rangesFile);
  // In front of what a range that is missing is refused with.
  const std::string whose = WhoseRanges(settings.rangesFile, measured, image);
  if (!whose.empty()) Log(LogLevel::kError, "vorn_mdl_load_from_mem", whose);
  settings.ranges = std::move(measured.tensors);
  return settings;
}

/// Of outputs that the model has no more, nothing is to be said.
void ForgetOutputs(const std::vector<std::string>& gone, ModelSettings& settings) {
  for (const std::string& name : gone) settings.outputDims.erase(name);
}

/// Settings have the names of the model; from here on callers are told.
void CallByShortNames(const std::map<std::string, std::string>& names, Signature& signature) {
  for (Port& port : signature.outputs) {
    const auto found = names.find(port.tensor.name);
    if (found != names.end()) port.tensor.name = found->second;
  }
}

/// Blocks for one item of each tensor.
struct ZeroBlocks {
  /// Takes them off the bytes that are left. Throws std::bad_alloc where those do not suffice.
  ZeroBlocks(const std::vector<TensorDescription>& tensors, uint64_t& left) {
    for (const TensorDescription& tensor : tensors) {
      const uint64_t bytes = tensor.layout.ItemBytes();
      if (bytes > left) throw std::bad_alloc();
      left -= bytes;
      // What is never touched never comes to be.
      blocks.emplace_back(std::calloc(bytes, 1), &std::free);
      if (blocks.back() == nullptr) throw std::bad_alloc();
      views.push_back({static_cast<std::byte*>(blocks.back().get()), bytes, tensor.layout.stride});
    }
  }

  std::vector<std::unique_ptr<void, decltype(&std::free)>> blocks;
  std::vector<BlockView> views;
};

}  // namespace

Model::Model(Engine& engine, std::span<const std::byte> image, const Config& config,
             std::shared_ptr<MemoryBudget> budget, Timeout timeout)
    : budget_(std::move(budget)) {
  WithinMemory([&] { Open(engine, image, config, timeout); });
}

void Model::Open(Engine& engine, std::span<const std::byte> image, const Config& config,
                 Timeout timeout) {
  ModelSettings settings = SettingsFor(image, config);
  Config effective = config;
  effective.dims.insert(settings.dims.begin(), settings.dims.end());
  std::map<std::string, std::string> shortNames;
  if (AreEditsWanted(settings)) image = Edit(engine, image, effective, settings, shortNames);
  session_ = engine.Open(image, effective);
  if (session_->outputs().empty()) {
    throw Failure(VORN_ERROR_MODEL, "the model has no output; there is nothing to execute it for");
  }
  LogUnusedSizes(image, effective);
  netType_ = settings.netType;
  Signature signature = SignatureOf(*session_, settings);
  CallByShortNames(shortNames, signature);
  WithinTime(timeout, [&] {
    if (netType_ == VORN_NET_RECURRENT) {
      plan_ = std::make_unique<RecurrentPlan>(*session_, std::move(signature), settings, effective);
    } else {
      plan_ = std::make_unique<BatchPlan>(*session_, std::move(signature), effective);
    }
  });
}

std::span<const std::byte> Model::Edit(Engine& engine, std::span<const std::byte> image,
                                       const Config& config, ModelSettings& settings,
                                       std::map<std::string, std::string>& shortNames) {
  static_cast<void>(RequireOneFile(image));  // what must not be opened is not edited either
  EditedModel edited =
      EditModel(image, settings, [&](Bytes whole) { return engine.TellOutputs(whole, config); });
  ForgetOutputs(edited.goneOutputs, settings);
  for (const auto& [input, output] : edited.states) settings.states[input] = output;
  // In front of what counts them, a line each, since programs read them.
  for (const auto& [name, shortName] : edited.shortNames) {
    Log(LogLevel::kError, "vorn_mdl_load_from_mem",
        Join('\'', shortName, "' stands for '", name, '\''));
  }
  Log(LogLevel::kError, "vorn_mdl_load_from_mem", edited.done);
  shortNames = std::move(edited.shortNames);
  editedImage_ = std::move(edited.image);
  return std::as_bytes(std::span(editedImage_));
}

void Model::Execute(const Call& call, Timeout timeout) {
  const std::lock_guard lock(mutex_);
  WithinMemory([&] { WithinTime(timeout, [&] { plan_->Execute(call); }); });
}

void Model::Rehearse(Timeout timeout) {
  const std::shared_ptr<const ModelDescription> described = description();
  uint64_t left = budget_ == nullptr ? MachineMemoryBytes() : budget_->limit() - budget_->taken();
  ZeroBlocks inputs(described->inputs, left);
  ZeroBlocks outputs(described->outputs, left);
  Execute({.inputs = inputs.views, .outputs = outputs.views, .batch = 1, .frames = 1}, timeout);
}

/// With what is known of the reason. Called while another fault is handled.
void Model::ThrowOutOfMemory(const BudgetScope& scope) const {
  if (scope.refusedBytes() == 0 || budget_ == nullptr) throw;
  throw Failure(VORN_ERROR_OUT_OF_MEMORY, "the model wants ", scope.refusedBytes(),
                " bytes more; the device has ", budget_->limit(), ", of which ",
                scope.takenAtRefusal(), " are taken");
}

template <typename Steps>
void Model::WithinMemory(Steps&& steps) {
  const BudgetScope scope(budget_);
  try {
    steps();
  } catch (const std::bad_alloc&) {
    ThrowOutOfMemory(scope);
  } catch (const Failure& e) {
    if (e.status() != VORN_ERROR_OUT_OF_MEMORY) throw;
    ThrowOutOfMemory(scope);
  }
}

template <typename Steps>
void Model::WithinTime(Timeout timeout, Steps&& steps) {
  if (timeout.seconds == 0) return steps();
  Deadline deadline(timeout.seconds, [this] { session_->Terminate(); });
  std::exception_ptr fault;
  try {
    steps();
  } catch (...) {
    fault = std::current_exception();
  }
  // Also where the last operator came to its end after the time.
  const bool hasExpired = deadline.Lift();
  session_->Resume();
  if (hasExpired) {
    throw Failure(VORN_ERROR_TIMEOUT, "the model ran longer than ", timeout.seconds,
                  " s and was ended; give vorn_rt_set_op_wait_timeout more");
  }
  if (fault) std::rethrow_exception(fault);
}

}  // namespace vorn::host
