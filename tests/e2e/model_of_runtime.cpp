#include "e2e/model_of_runtime.h"

#include <algorithm>

#include "support/files.h"

namespace e2e {
namespace {

// The failures of vorn.h that the scripted runtime gives of its own accord.
constexpr int32_t kInvalidArgument = 1;
constexpr int32_t kInvalidHandle = 2;
constexpr int32_t kNotInitialised = 3;
constexpr int32_t kOutOfMemory = 5;

constexpr size_t kMaxName = 128;
constexpr size_t kMaxDims = 128;
constexpr char kFreshByte = '\xA5';
constexpr int64_t kNoDim = -0x5A5A5A5A5A5A5A5A;  // stands behind the last dimension

bool Has(const CallRange& calls, uint64_t n) { return n >= calls.first && n <= calls.last; }

/// `buffer#2`, or `null`.
std::string NameOf(const std::string& noun, uint64_t number) {
  return number == 0 ? "null" : noun + "#" + std::to_string(number);
}

std::string List(const std::vector<std::string>& arguments) {
  std::string text;
  for (const std::string& argument : arguments) text += (text.empty() ? "" : ", ") + argument;
  return text;
}

std::string Text(int64_t number) { return std::to_string(number); }
std::string TextU(uint64_t number) { return std::to_string(number); }

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      quoted += std::string("\\") + c;
    } else if (c < ' ' || c > '~') {
      quoted += "\\x" + support::Hex(std::string(1, c));
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

std::string Operation(ModelOfRuntime::Side side, const std::string& what) {
  return std::string("vorn_mdl_get_") +
         (side == ModelOfRuntime::Side::kInput ? "input_" : "output_") + what;
}

}  // namespace

ModelOfRuntime::ModelOfRuntime(const RunPlan& plan) : plan_(plan), seen_(plan.answers.size(), 0) {}

// ---- One call -----------------------------------------------------------------------------------

ModelOfRuntime::Call ModelOfRuntime::Begin(const std::string& operation,
                                           const std::string& arguments,
                                           std::optional<uint64_t> index) {
  Call call;
  call.operation = operation;
  call.arguments = arguments;
  ++calls_;
  for (const PlannedFailure& failure : plan_.failures) {
    if (Has(failure.calls, calls_)) call.failure = failure.status;
  }
  for (size_t r = 0; r < plan_.answers.size(); ++r) {
    const PlannedAnswer& answer = plan_.answers[r];
    if (answer.operation != operation || (answer.index && answer.index != index)) continue;
    ++seen_[r];
    if (Has(answer.calls, seen_[r])) call.answer = &answer;
  }
  return call;
}

void ModelOfRuntime::End(const Call& call, const std::string& answer, bool scripted) {
  record_.push_back(call.operation + "(" + call.arguments + ") = " + answer +
                    (call.shown.empty() ? "" : " " + call.shown) + (scripted ? " [scripted]" : ""));
  record_.insert(record_.end(), call.after.begin(), call.after.end());
}

void ModelOfRuntime::Complain(Call* call, const std::string& what) {
  call->after.push_back("violation: " + call->operation + ": " + what);
}

int32_t ModelOfRuntime::Status(Call call, const std::function<int32_t(Call*)>& work) {
  if (call.failure) {
    End(call, Text(*call.failure), true);
    return *call.failure;
  }
  const auto ordered = call.answer != nullptr ? static_cast<int32_t>(call.answer->number) : 0;
  if (call.answer != nullptr && ordered != 0 && !call.answer->effect) {
    End(call, Text(ordered), true);
    return ordered;
  }
  const int32_t natural = work(&call);
  const int32_t status = call.answer != nullptr ? ordered : natural;
  End(call, Text(status), call.answer != nullptr);
  return status;
}

uint64_t ModelOfRuntime::Handle(Call call, const std::string& noun,
                                const std::function<uint64_t(Call*)>& work) {
  const bool refused = call.failure || call.answer != nullptr;
  const uint64_t handle = refused ? 0 : work(&call);
  End(call, NameOf(noun, handle), refused);
  return handle;
}

uint64_t ModelOfRuntime::Count(const Call& call, uint64_t natural) {
  uint64_t count = natural;
  if (call.answer != nullptr) count = call.answer->number;
  if (call.failure) count = 0;
  End(call, TextU(count), call.failure || call.answer != nullptr);
  return count;
}

// ---- Runtime, device, context, stream -----------------------------------------------------------

int32_t ModelOfRuntime::Init(const std::string& configPath) {
  return Status(Begin("vorn_init", Quoted(configPath)), [&](Call*) {
    initialised_ = true;
    return 0;
  });
}

int32_t ModelOfRuntime::Finalize() {
  const int32_t status = Status(Begin("vorn_finalize", ""), [&](Call*) {
    if (!initialised_) return kNotInitialised;
    initialised_ = false;
    return 0;
  });
  NoteLive("finalize");
  return status;
}

int32_t ModelOfRuntime::SetDevice(int32_t device) {
  return Status(Begin("vorn_rt_set_device", Text(device)), [&](Call*) {
    deviceSet_ = true;
    return 0;
  });
}

int32_t ModelOfRuntime::ResetDevice(int32_t device) {
  return Status(Begin("vorn_rt_reset_device", Text(device)), [&](Call*) {
    if (!deviceSet_) return kNotInitialised;
    deviceSet_ = false;
    return 0;
  });
}

int32_t ModelOfRuntime::SetOpWaitTimeout(uint32_t seconds) {
  return Status(Begin("vorn_rt_set_op_wait_timeout", TextU(seconds)), [](Call*) { return 0; });
}

int32_t ModelOfRuntime::CreateContext(int32_t device, uint64_t* context) {
  return Status(Begin("vorn_rt_create_context", Text(device)), [&](Call* call) {
    *context = ++made_["context"];
    contexts_.insert(*context);
    call->shown = NameOf("context", *context);
    return 0;
  });
}

int32_t ModelOfRuntime::DestroyContext(uint64_t context) {
  return Status(Begin("vorn_rt_destroy_context", NameOf("context", context)), [&](Call*) {
    contexts_.erase(context);
    return 0;
  });
}

int32_t ModelOfRuntime::CreateStream(uint64_t* stream) {
  return Status(Begin("vorn_rt_create_stream", ""), [&](Call* call) {
    *stream = ++made_["stream"];
    streams_.insert(*stream);
    call->shown = NameOf("stream", *stream);
    return 0;
  });
}

int32_t ModelOfRuntime::DestroyStream(uint64_t stream) {
  return Status(Begin("vorn_rt_destroy_stream", NameOf("stream", stream)), [&](Call*) {
    streams_.erase(stream);
    return 0;
  });
}

int32_t ModelOfRuntime::GetRunMode(int32_t* runMode) {
  return Status(Begin("vorn_rt_get_run_mode", ""), [&](Call* call) {
    *runMode = plan_.runMode;
    call->shown = Text(*runMode);
    return 0;
  });
}

// ---- Memory and models --------------------------------------------------------------------------

int32_t ModelOfRuntime::Malloc(uint64_t size, uint64_t* block) {
  return Status(Begin("vorn_rt_malloc", List({TextU(size), "2"})), [&](Call* call) {
    if (size > plan_.limitBytes) return kOutOfMemory;
    *block = ++made_["block"];
    blocks_[*block] = std::string(size, kFreshByte);
    call->shown = NameOf("block", *block);
    return 0;
  });
}

int32_t ModelOfRuntime::Free(uint64_t block) {
  return Status(Begin("vorn_rt_free", NameOf("block", block)), [&](Call* call) {
    if (block == 0) return 0;
    for (const auto& [id, image] : models_) {
      if (image == block) {
        Complain(call, NameOf("block", block) + " is the image of model " + TextU(id));
      }
    }
    blocks_.erase(block);
    return 0;
  });
}

int32_t ModelOfRuntime::LoadFromMem(uint64_t block, uint64_t size, uint32_t* modelId) {
  const std::string arguments = List({NameOf("block", block), TextU(size)});
  return Status(Begin("vorn_mdl_load_from_mem", arguments), [&](Call* call) {
    if (block == 0 || size == 0) return kInvalidArgument;
    *modelId = nextModel_++;
    models_[*modelId] = block;
    call->shown = "model#" + TextU(*modelId);
    return 0;
  });
}

int32_t ModelOfRuntime::Unload(uint32_t modelId) {
  return Status(Begin("vorn_mdl_unload", TextU(modelId)),
                [&](Call*) { return models_.erase(modelId) == 1 ? 0 : kInvalidHandle; });
}

int32_t ModelOfRuntime::GetNetType(uint32_t modelId, int32_t* netType) {
  return Status(Begin("vorn_ext_get_mdl_net_type", TextU(modelId)), [&](Call* call) {
    if (models_.count(modelId) == 0) return kInvalidHandle;
    *netType = plan_.netType;
    call->shown = Text(*netType);
    return 0;
  });
}

// ---- The description ----------------------------------------------------------------------------

uint64_t ModelOfRuntime::CreateDesc() {
  return Handle(Begin("vorn_mdl_create_desc", ""), "desc", [&](Call*) {
    desc_ = ++made_["desc"];
    return desc_;
  });
}

int32_t ModelOfRuntime::DestroyDesc(uint64_t desc) {
  return Status(Begin("vorn_mdl_destroy_desc", NameOf("desc", desc)), [&](Call*) {
    desc_ = 0;
    return 0;
  });
}

int32_t ModelOfRuntime::GetDesc(uint64_t desc, uint32_t modelId) {
  const std::string arguments = List({NameOf("desc", desc), TextU(modelId)});
  return Status(Begin("vorn_mdl_get_desc", arguments),
                [&](Call*) { return models_.count(modelId) == 1 ? 0 : kInvalidHandle; });
}

const PlannedTensor* ModelOfRuntime::Find(Side side, uint64_t index) const {
  const auto& tensors = side == Side::kInput ? plan_.inputs : plan_.outputs;
  return index < tensors.size() ? &tensors[index] : nullptr;
}

uint64_t ModelOfRuntime::NumberOf(Side side) const {
  return side == Side::kInput ? plan_.inputs.size() : plan_.outputs.size();
}

uint64_t ModelOfRuntime::GetNum(Side side) {
  return Count(Begin(side == Side::kInput ? "vorn_mdl_get_num_inputs" : "vorn_mdl_get_num_outputs",
                     NameOf("desc", desc_)),
               NumberOf(side));
}

int32_t ModelOfRuntime::GetDims(Side side, uint64_t index, ShapeAnswer* shape) {
  const std::string arguments = List({NameOf("desc", desc_), TextU(index)});
  return Status(Begin(Operation(side, "dims"), arguments, index), [&](Call*) {
    const PlannedTensor* tensor = Find(side, index);
    if (tensor == nullptr) return kInvalidArgument;
    shape->name = tensor->name.substr(0, kMaxName);
    shape->dimCount = tensor->rank.value_or(tensor->dims.size());
    shape->dims = tensor->dims;
    shape->dims.resize(kMaxDims, kNoDim);
    return 0;
  });
}

// Types, formats and names have no way to fail: the answer is the same in a call that is to fail.

uint32_t ModelOfRuntime::GetDataType(Side side, uint64_t index) {
  const PlannedTensor* tensor = Find(side, index);
  const uint32_t type = tensor == nullptr ? 0 : tensor->type;
  End(Begin(Operation(side, "data_type"), List({NameOf("desc", desc_), TextU(index)}), index),
      TextU(type), false);
  return type;
}

int32_t ModelOfRuntime::GetFormat(Side side, uint64_t index) {
  const PlannedTensor* tensor = Find(side, index);
  const int32_t format = tensor == nullptr ? 0 : tensor->format;
  End(Begin(Operation(side, "format"), List({NameOf("desc", desc_), TextU(index)}), index),
      Text(format), false);
  return format;
}

std::string ModelOfRuntime::GetOutputName(uint64_t index) {
  const PlannedTensor* tensor = Find(Side::kOutput, index);
  std::string name = tensor == nullptr ? "" : tensor->fullName.value_or(tensor->name);
  End(Begin("vorn_mdl_get_output_name_by_index", List({NameOf("desc", desc_), TextU(index)}),
            index),
      tensor == nullptr ? "null" : Quoted(name), false);
  return name;
}

uint64_t ModelOfRuntime::GetSize(Side side, uint64_t index) {
  const PlannedTensor* tensor = Find(side, index);
  return Count(
      Begin(Operation(side, "size_by_index"), List({NameOf("desc", desc_), TextU(index)}), index),
      tensor == nullptr ? 0 : tensor->size);
}

uint64_t ModelOfRuntime::GetStride(Side side, uint64_t index) {
  const PlannedTensor* tensor = Find(side, index);
  return Count(
      Begin(Operation(side, "default_stride"), List({NameOf("desc", desc_), TextU(index)}), index),
      tensor == nullptr ? 0 : tensor->stride);
}

uint64_t ModelOfRuntime::DataTypeSize(uint32_t type) {
  return Count(Begin("vorn_data_type_size", TextU(type), type), BitsOf(plan_, type));
}

// ---- Data buffers and datasets ------------------------------------------------------------------

uint64_t ModelOfRuntime::CreateDataBuffer(uint64_t block, uint64_t size, uint64_t stride) {
  const std::string arguments = List({NameOf("block", block), TextU(size), TextU(stride)});
  return Handle(Begin("vorn_create_data_buffer", arguments), "buffer", [&](Call* call) {
    const uint64_t room = blocks_.at(block).size();
    if (size > room) {
      Complain(call, "the buffer is larger than " + NameOf("block", block) + " of " + TextU(room) +
                         " bytes");
    }
    const uint64_t buffer = ++made_["buffer"];
    buffers_[buffer] = {block, size};
    return buffer;
  });
}

int32_t ModelOfRuntime::DestroyDataBuffer(uint64_t buffer) {
  return Status(Begin("vorn_destroy_data_buffer", NameOf("buffer", buffer)), [&](Call* call) {
    if (buffer == 0) {
      Complain(call, "null is no buffer");
      return kInvalidHandle;
    }
    buffers_.erase(buffer);
    return 0;
  });
}

uint64_t ModelOfRuntime::GetDataBufferAddr(uint64_t buffer) {
  return Handle(Begin("vorn_get_data_buffer_addr", NameOf("buffer", buffer)), "block",
                [&](Call* call) {
                  if (buffer == 0) {
                    Complain(call, "null is no buffer");
                    return uint64_t{0};
                  }
                  return buffers_.at(buffer).block;
                });
}

uint64_t ModelOfRuntime::GetDataBufferSize(uint64_t buffer) {
  return Count(Begin("vorn_get_data_buffer_size", NameOf("buffer", buffer)),
               buffers_.at(buffer).size);
}

uint64_t ModelOfRuntime::CreateDataset() {
  return Handle(Begin("vorn_mdl_create_dataset", ""), "dataset", [&](Call*) {
    const uint64_t dataset = ++made_["dataset"];
    datasets_[dataset] = {};
    return dataset;
  });
}

int32_t ModelOfRuntime::DestroyDataset(uint64_t dataset) {
  return Status(Begin("vorn_mdl_destroy_dataset", NameOf("dataset", dataset)), [&](Call*) {
    datasets_.erase(dataset);
    return 0;
  });
}

int32_t ModelOfRuntime::AddDatasetBuffer(uint64_t dataset, uint64_t buffer) {
  const std::string arguments = List({NameOf("dataset", dataset), NameOf("buffer", buffer)});
  return Status(Begin("vorn_mdl_add_dataset_buffer", arguments), [&](Call*) {
    datasets_.at(dataset).push_back(buffer);
    return 0;
  });
}

uint64_t ModelOfRuntime::GetDatasetNumBuffers(uint64_t dataset) {
  return Count(Begin("vorn_mdl_get_dataset_num_buffers", NameOf("dataset", dataset)),
               datasets_.at(dataset).size());
}

uint64_t ModelOfRuntime::GetDatasetBuffer(uint64_t dataset, uint64_t index) {
  return Handle(
      Begin("vorn_mdl_get_dataset_buffer", List({NameOf("dataset", dataset), TextU(index)}), index),
      "buffer", [&](Call*) {
        const auto& buffers = datasets_.at(dataset);
        return index < buffers.size() ? buffers[index] : 0;
      });
}

// ---- Settings and execution ---------------------------------------------------------------------

int32_t ModelOfRuntime::SetDynamicBatchSize(uint32_t modelId, uint64_t dataset, uint64_t index,
                                            uint64_t batch) {
  return Status(
      Begin("vorn_mdl_set_dynamic_batch_size",
            List({TextU(modelId), NameOf("dataset", dataset), TextU(index), TextU(batch)})),
      [](Call*) { return 0; });
}

int32_t ModelOfRuntime::SetTotalT(uint32_t modelId, uint64_t dataset, uint64_t totalT) {
  return Status(Begin("vorn_mdl_set_total_t",
                      List({TextU(modelId), NameOf("dataset", dataset), TextU(totalT)})),
                [](Call*) { return 0; });
}

int32_t ModelOfRuntime::Execute(uint32_t modelId, uint64_t input, uint64_t output) {
  const std::string arguments =
      List({TextU(modelId), NameOf("dataset", input), NameOf("dataset", output)});
  return Status(Begin("vorn_mdl_execute", arguments), [&](Call* call) {
    if (models_.count(modelId) == 0) Complain(call, "model " + TextU(modelId) + " is not loaded");
    CheckBufferCount(call, input, plan_.inputs.size());
    CheckBufferCount(call, output, plan_.outputs.size());
    See(call, "input", input);
    See(call, "output", output);
    WriteOutputs(call, output);
    return 0;
  });
}

void ModelOfRuntime::CheckBufferCount(Call* call, uint64_t dataset, size_t wanted) const {
  const size_t count = datasets_.at(dataset).size();
  if (count == wanted) return;
  Complain(call, NameOf("dataset", dataset) + " has " + TextU(count) +
                     " buffers, the model wants " + TextU(wanted));
}

void ModelOfRuntime::See(Call* call, const char* whose, uint64_t dataset) const {
  const auto& buffers = datasets_.at(dataset);
  for (size_t i = 0; i < buffers.size(); ++i) {
    const Buffer& buffer = buffers_.at(buffers[i]);
    const std::string& bytes = blocks_.at(buffer.block);
    call->after.push_back(std::string("saw ") + whose + " " + TextU(i) +
                          ": buffer=" + TextU(buffer.size) + " block=" + TextU(bytes.size()) +
                          " hex=" + support::Hex(bytes));
  }
}

void ModelOfRuntime::WriteOutputs(Call* call, uint64_t dataset) {
  const auto& buffers = datasets_.at(dataset);
  for (size_t i = 0; i < plan_.outputBytes.size(); ++i) {
    const std::string& bytes = plan_.outputBytes[i];
    if (bytes.empty()) continue;
    const std::string piece = "note: the script's bytes for output " + TextU(i);
    if (i >= buffers.size()) {
      call->after.push_back(piece + " have no block");
      continue;
    }
    std::string& block = blocks_.at(buffers_.at(buffers[i]).block);
    const size_t fits = std::min(bytes.size(), block.size());
    block.replace(0, fits, bytes, 0, fits);
    if (fits < bytes.size()) call->after.push_back(piece + " did not fit");
  }
}

// ---- What is left -------------------------------------------------------------------------------

void ModelOfRuntime::NoteLive(const char* moment) {
  record_.push_back("live: blocks=" + TextU(blocks_.size()) + " buffers=" + TextU(buffers_.size()) +
                    " datasets=" + TextU(datasets_.size()) + " descs=" + TextU(desc_ == 0 ? 0 : 1) +
                    " contexts=" + TextU(contexts_.size()) + " streams=" + TextU(streams_.size()) +
                    " models=" + TextU(models_.size()) + " at=" + moment);
}

void ModelOfRuntime::EndOfProcess() {
  if (calls_ > 0) NoteLive("exit");
}

}  // namespace e2e
