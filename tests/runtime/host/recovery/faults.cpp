// Counting down, and failing once.
#include "runtime/host/recovery/faults.h"

#include <onnxruntime_cxx_api.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "host/config/model_settings.h"
#include "host/engine/engine.h"
#include "host/engine/engine_library.h"
#include "host/memory/block_store.h"

// What the linker's --wrap leads calls to, and where it leaves the functions themselves.
int RealMemalign(void** block, size_t alignment, size_t bytes) asm("__real_posix_memalign");
void* RealCalloc(size_t count, size_t bytes) asm("__real_calloc");
int WatchedMemalign(void** block, size_t alignment, size_t bytes) asm("__wrap_posix_memalign");
void* WatchedCalloc(size_t count, size_t bytes) asm("__wrap_calloc");

namespace vorn::host {
namespace {

constexpr int64_t kNever = -1;

struct Countdown {
  Fault fault = Fault::kAllocation;
  int64_t left = kNever;
  bool hasFailed = false;
  int callDepth = 0;  // of ONNX Runtime's functions
};

thread_local Countdown countdown;
thread_local bool isExposed = false;

bool FailsNow() {
  if (!isExposed || countdown.left == kNever) return false;
  if (countdown.left-- != 0) return false;
  countdown.hasFailed = true;
  return true;
}

bool AllocationFails(size_t alignment) {
  if (countdown.fault == Fault::kCall) return false;
  // ONNX Runtime asks for nothing that is aligned like this but through our allocator.
  if (countdown.callDepth != 0 && alignment != kBlockAlignment) return false;
  return FailsNow();
}

void* Allocate(size_t bytes, size_t alignment) {
  void* block = nullptr;
  if (AllocationFails(alignment) ||
      RealMemalign(&block, std::max(alignment, sizeof(void*)), bytes) != 0) {
    throw std::bad_alloc();
  }
  return block;
}

const OrtApi* real = nullptr;

/// A function of the table that may fail.
template <auto Entry, typename... Args>
OrtStatusPtr Call(Args... args) noexcept {
  if (countdown.fault == Fault::kCall && FailsNow()) {
    return real->CreateStatus(ORT_FAIL, "refused on purpose");
  }
  ++countdown.callDepth;
  const OrtStatusPtr status = (real->*Entry)(args...);
  --countdown.callDepth;
  return status;
}

template <auto Entry, typename... Args>
void PutOne(OrtApi& table, OrtStatusPtr (*OrtApi::*)(Args...) noexcept) {
  table.*Entry = &Call<Entry, Args...>;
}

template <auto... Entries>
void Put(OrtApi& table) {
  (PutOne<Entries>(table, Entries), ...);
}

/// A function that answers with nothing, and so may not fail; what it allocates is the library's.
template <auto Entry, typename... Args>
void Release(Args... args) noexcept {
  ++countdown.callDepth;
  (real->*Entry)(args...);
  --countdown.callDepth;
}

template <auto Entry, typename... Args>
void PutRelease(OrtApi& table, void (*OrtApi::*)(Args...) noexcept) {
  table.*Entry = &Release<Entry, Args...>;
}

template <auto Entry, typename... Args>
void PutRelease(OrtApi& table, void (*OrtApi::*)(Args...)) {
  table.*Entry = &Release<Entry, Args...>;
}

template <auto... Entries>
void PutReleases(OrtApi& table) {
  (PutRelease<Entries>(table, Entries), ...);
}

void Unlisted() {
  std::fputs("the engine uses a function of ONNX Runtime that faults.cpp does not list\n", stderr);
  std::abort();
}

OrtApi WatchedTable() {
  OrtApi table;
  void (*unlisted)() = &Unlisted;
  for (size_t at = 0; at + sizeof(unlisted) <= sizeof(table); at += sizeof(unlisted)) {
    std::memcpy(reinterpret_cast<char*>(&table) + at, &unlisted, sizeof(unlisted));
  }
  Put<&OrtApi::AddFreeDimensionOverrideByName, &OrtApi::AddSessionConfigEntry,
      &OrtApi::AllocatorFree, &OrtApi::BindInput, &OrtApi::BindOutput, &OrtApi::BindOutputToDevice,
      &OrtApi::CastTypeInfoToTensorInfo, &OrtApi::CreateAllocator, &OrtApi::CreateCpuMemoryInfo,
      &OrtApi::CreateEnvWithCustomLogger, &OrtApi::CreateIoBinding, &OrtApi::CreateRunOptions,
      &OrtApi::CreateSessionFromArray, &OrtApi::CreateSessionOptions,
      &OrtApi::CreateTensorAsOrtValue, &OrtApi::CreateTensorWithDataAsOrtValue,
      &OrtApi::DisableTelemetryEvents, &OrtApi::GetAllocatorWithDefaultOptions,
      &OrtApi::GetBoundOutputValues, &OrtApi::GetDimensions, &OrtApi::GetDimensionsCount,
      &OrtApi::GetOnnxTypeFromTypeInfo, &OrtApi::GetSymbolicDimensions,
      &OrtApi::GetTensorElementType, &OrtApi::GetTensorMutableData, &OrtApi::GetTensorTypeAndShape,
      &OrtApi::RegisterAllocator, &OrtApi::Run, &OrtApi::RunOptionsSetTerminate,
      &OrtApi::RunOptionsUnsetTerminate, &OrtApi::RunWithBinding, &OrtApi::SessionGetInputCount,
      &OrtApi::SessionGetInputName, &OrtApi::SessionGetInputTypeInfo,
      &OrtApi::SessionGetOutputCount, &OrtApi::SessionGetOutputName,
      &OrtApi::SessionGetOutputTypeInfo, &OrtApi::SessionOptionsSetCustomCreateThreadFn,
      &OrtApi::SessionOptionsSetCustomJoinThreadFn,
      &OrtApi::SessionOptionsSetCustomThreadCreationOptions, &OrtApi::SetInterOpNumThreads,
      &OrtApi::SetLanguageProjection, &OrtApi::SetIntraOpNumThreads,
      &OrtApi::SetSessionExecutionMode, &OrtApi::SetSessionGraphOptimizationLevel,
      &OrtApi::SetSessionLogSeverityLevel>(table);
  PutReleases<&OrtApi::ClearBoundInputs, &OrtApi::ClearBoundOutputs, &OrtApi::ReleaseAllocator,
              &OrtApi::ReleaseEnv, &OrtApi::ReleaseIoBinding, &OrtApi::ReleaseMemoryInfo,
              &OrtApi::ReleaseRunOptions, &OrtApi::ReleaseSession, &OrtApi::ReleaseSessionOptions,
              &OrtApi::ReleaseStatus, &OrtApi::ReleaseTensorTypeAndShapeInfo,
              &OrtApi::ReleaseTypeInfo, &OrtApi::ReleaseValue>(table);
  table.CreateStatus = real->CreateStatus;
  table.GetErrorCode = real->GetErrorCode;
  table.GetErrorMessage = real->GetErrorMessage;
  return table;
}

}  // namespace

void WatchEngine() {
  if (real != nullptr) return;
  CreateEngine();  // which takes the table once
  real = LoadEngineLibrary();
  static const OrtApi table = WatchedTable();
  Ort::InitApi(&table);
}

void Arm(Fault fault, int64_t n) { countdown = {.fault = fault, .left = n}; }

bool Disarm() {
  const bool hasFailed = countdown.hasFailed;
  countdown = {};
  return hasFailed;
}

Exposed::Exposed() { isExposed = true; }

Exposed::~Exposed() { isExposed = false; }

/// Reading settings is spared: when the JSON library destroys a document, it allocates, and ends
/// the process where it cannot.
ModelSettings RealParse(std::string_view text, ModelSettings base) asm("__real_" VORN_PARSE_SYMBOL);
ModelSettings SparedParse(std::string_view text,
                          ModelSettings base) asm("__wrap_" VORN_PARSE_SYMBOL);
ModelSettings SparedParse(std::string_view text, ModelSettings base) {
  const bool wasExposed = std::exchange(isExposed, false);
  ModelSettings settings = RealParse(text, std::move(base));
  isExposed = wasExposed;
  return settings;
}

}  // namespace vorn::host

int WatchedMemalign(void** block, size_t alignment, size_t bytes) {
  if (vorn::host::AllocationFails(alignment)) return ENOMEM;
  return RealMemalign(block, alignment, bytes);
}

void* WatchedCalloc(size_t count, size_t bytes) {
  return vorn::host::AllocationFails(0) ? nullptr : RealCalloc(count, bytes);
}

void* operator new(size_t bytes) { return vorn::host::Allocate(bytes, alignof(std::max_align_t)); }
void* operator new(size_t bytes, std::align_val_t alignment) {
  return vorn::host::Allocate(bytes, static_cast<size_t>(alignment));
}
// Those of the library lead to the two above; those of AddressSanitizer do not.
void* operator new(size_t bytes, const std::nothrow_t&) noexcept {
  try {
    return operator new(bytes);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new(size_t bytes, std::align_val_t alignment, const std::nothrow_t&) noexcept {
  try {
    return operator new(bytes, alignment);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, size_t, std::align_val_t) noexcept { std::free(block); }
