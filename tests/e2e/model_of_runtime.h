// The runtime as the model of the command sees it: no memory, no addresses, only numbers. Block 3
// is the number 3 and its bytes are a string; null is the number 0. It answers as a plan says and
// keeps the lines that the scripted runtime would record of the same calls (scripted/scripted.h).
// Of the rules that can be broken it knows those that a runtime's refusals make a correct command
// break; any other shows as a missing line.
#ifndef VORN_TESTS_E2E_MODEL_OF_RUNTIME_H_
#define VORN_TESTS_E2E_MODEL_OF_RUNTIME_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "e2e/run_plan.h"

namespace e2e {

/// What the runtime tells of a tensor's name and shape, at most 128 dimensions of it.
struct ShapeAnswer {
  std::string name;
  uint64_t dimCount = 0;
  std::vector<int64_t> dims;  // always 128
};

/// The functions of `vorn.h` by their names without the prefix.
class ModelOfRuntime {
 public:
  /// The plan must outlive this.
  explicit ModelOfRuntime(const RunPlan& plan);

  int32_t Init(const std::string& configPath);
  int32_t Finalize();
  int32_t SetDevice(int32_t device);
  int32_t ResetDevice(int32_t device);
  int32_t SetOpWaitTimeout(uint32_t seconds);
  int32_t CreateContext(int32_t device, uint64_t* context);
  int32_t DestroyContext(uint64_t context);
  int32_t CreateStream(uint64_t* stream);
  int32_t DestroyStream(uint64_t stream);
  int32_t GetRunMode(int32_t* runMode);

  int32_t Malloc(uint64_t size, uint64_t* block);
  int32_t Free(uint64_t block);

  int32_t LoadFromMem(uint64_t block, uint64_t size, uint32_t* modelId);
  int32_t Unload(uint32_t modelId);
  int32_t GetNetType(uint32_t modelId, int32_t* netType);

  uint64_t CreateDesc();
  int32_t DestroyDesc(uint64_t desc);
  int32_t GetDesc(uint64_t desc, uint32_t modelId);

  /// Of the inputs or of the outputs.
  enum class Side { kInput, kOutput };
  uint64_t GetNum(Side side);
  int32_t GetDims(Side side, uint64_t index, ShapeAnswer* shape);
  uint32_t GetDataType(Side side, uint64_t index);
  uint64_t GetSize(Side side, uint64_t index);
  uint64_t GetStride(Side side, uint64_t index);
  int32_t GetFormat(Side side, uint64_t index);
  std::string GetOutputName(uint64_t index);
  uint64_t DataTypeSize(uint32_t type);

  uint64_t CreateDataBuffer(uint64_t block, uint64_t size, uint64_t stride);
  int32_t DestroyDataBuffer(uint64_t buffer);
  uint64_t GetDataBufferAddr(uint64_t buffer);
  uint64_t GetDataBufferSize(uint64_t buffer);
  uint64_t CreateDataset();
  int32_t DestroyDataset(uint64_t dataset);
  int32_t AddDatasetBuffer(uint64_t dataset, uint64_t buffer);
  uint64_t GetDatasetNumBuffers(uint64_t dataset);
  uint64_t GetDatasetBuffer(uint64_t dataset, uint64_t index);

  int32_t SetDynamicBatchSize(uint32_t modelId, uint64_t dataset, uint64_t index, uint64_t batch);
  int32_t SetTotalT(uint32_t modelId, uint64_t dataset, uint64_t totalT);
  int32_t Execute(uint32_t modelId, uint64_t input, uint64_t output);

  /// The bytes of a live block.
  std::string& BytesOf(uint64_t block) { return blocks_.at(block); }

  /// What is noted when the process ends by itself; nothing if the runtime was never called.
  void EndOfProcess();

  [[nodiscard]] const std::vector<std::string>& Record() const { return record_; }

 private:
  struct Buffer {
    uint64_t block = 0;
    uint64_t size = 0;
  };

  /// One call on its way: what is to be recorded, and what the plan says about it.
  struct Call {
    std::string operation;
    std::string arguments;
    std::optional<int32_t> failure;
    const PlannedAnswer* answer = nullptr;
    std::string shown;               // behind the answer
    std::vector<std::string> after;  // lines behind the call's own
  };

  Call Begin(const std::string& operation, const std::string& arguments,
             std::optional<uint64_t> index = {});
  void End(const Call& call, const std::string& answer, bool scripted);
  static void Complain(Call* call, const std::string& what);

  /// The three kinds of answer; `work` is what the operation does when nobody interferes.
  int32_t Status(Call call, const std::function<int32_t(Call*)>& work);
  uint64_t Handle(Call call, const std::string& noun, const std::function<uint64_t(Call*)>& work);
  uint64_t Count(const Call& call, uint64_t natural);

  const PlannedTensor* Find(Side side, uint64_t index) const;
  uint64_t NumberOf(Side side) const;
  void CheckBufferCount(Call* call, uint64_t dataset, size_t wanted) const;
  void See(Call* call, const char* whose, uint64_t dataset) const;
  void WriteOutputs(Call* call, uint64_t dataset);
  void NoteLive(const char* moment);

  const RunPlan& plan_;
  std::vector<std::string> record_;
  uint64_t calls_ = 0;
  std::vector<uint64_t> seen_;  // for each planned answer, the calls so far that it is about

  bool initialised_ = false;
  bool deviceSet_ = false;
  uint64_t desc_ = 0;  // the only one; 0 while it does not exist
  uint32_t nextModel_ = 1;
  std::map<uint32_t, uint64_t> models_;  // id: block of the image
  std::map<uint64_t, std::string> blocks_;
  std::map<uint64_t, Buffer> buffers_;
  std::map<uint64_t, std::vector<uint64_t>> datasets_;
  std::set<uint64_t> contexts_;
  std::set<uint64_t> streams_;
  std::map<std::string, uint64_t> made_;  // how many of each noun there have been
};

}  // namespace e2e

#endif  // VORN_TESTS_E2E_MODEL_OF_RUNTIME_H_
