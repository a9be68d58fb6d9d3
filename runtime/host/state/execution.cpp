// From two handles to blocks, and what is remembered of them.
#include "host/state/execution.h"

#include <memory>
#include <vector>

#include "host/state/tables.h"
#include "host/tensor/block_view.h"

namespace vorn::host {
namespace {

constexpr uint64_t kUnresolved = 0;  // instead of a count of changes

/// What the datasets of an execution came to, after so many changes of the tables.
struct ResolvedCall {
  uint64_t changes = kUnresolved;
  const vorn_mdl_dataset* input = nullptr;
  const vorn_mdl_dataset* output = nullptr;
  std::vector<BlockView> inputs;
  std::vector<BlockView> outputs;
  uint64_t batch = 1;
  uint64_t frames = 0;
};

/// Leaves the call unresolved if it fails.
void Resolve(ResolvedCall& call, const Tables& tables, const vorn_mdl_dataset* input,
             const vorn_mdl_dataset* output) {
  call.changes = kUnresolved;
  tables.devices.RequireContext();
  const Dataset& from = tables.datasets.At(input);
  tables.datasets.ViewsOf(from, Side::kInput, call.inputs);
  tables.datasets.ViewsOf(tables.datasets.At(output), Side::kOutput, call.outputs);
  call.batch = from.batch;
  call.frames = from.frames;
  call.input = input;
  call.output = output;
  call.changes = tables.changes;
}

}  // namespace

void ExecuteModel(uint32_t modelId, const vorn_mdl_dataset* input, vorn_mdl_dataset* output) {
  // Kept by the thread, so that executing again allocates nothing and looks little up.
  thread_local ResolvedCall call;
  std::shared_ptr<Model> model;
  Timeout timeout;
  {
    const Look tables;
    if (call.changes != tables->changes || call.input != input || call.output != output) {
      Resolve(call, *tables, input, output);
    }
    model = tables->models.At(modelId);
    timeout = tables->timeout;
  }
  model->Execute(
      {.inputs = call.inputs, .outputs = call.outputs, .batch = call.batch, .frames = call.frames},
      timeout);
}

}  // namespace vorn::host
