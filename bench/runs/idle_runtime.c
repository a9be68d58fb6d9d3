// A libvorn.so whose executions do nothing. Its model image is a text:
//
//     input  NAME TYPE STRIDE SIZE DIM...
//     output NAME TYPE STRIDE SIZE DIM...
//
// The task buffer and the work buffer, 64 bytes each, come by themselves. Blocks start on a page
// and are handed out again for a request of their size, so that memory costs no time; those of
// 64 MiB and more are fresh each time. Handles are not checked: every caller here is known.
//
// The first execution over an output block of 32-bit floats leaves values in it that a dump has to
// work for; all later ones leave it alone. VORN_IDLE_EXECUTE_US in the environment is how long an
// execution sleeps, as a device is at work that is no part of this machine. If the environment
// variable VORN_IDLE_REPORT names a file, vorn_finalize leaves two numbers there: the most bytes
// that all blocks had, kept ones included, and the most KiB of memory that the process ever had
// resident.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "vorn/operations.h"
#include "vorn/vorn.h"

enum {
  kMostTensors = 16,
  kMostBlocks = 64,
  kScratchBytes = 64,
  kPageBytes = 4096,
  kKeptBytes = 64 << 20,
  kDistinctValues = 1 << 16
};

struct Tensor {
  vorn_mdl_io_dims dims;
  vorn_data_type type;
  uint64_t stride;
  uint64_t size;
};

static struct Tensor inputs[kMostTensors];
static struct Tensor outputs[kMostTensors];
static uint64_t inputCount;
static uint64_t outputCount;

struct vorn_data_buffer {
  void* block;
  uint64_t size;
  int isFilled;
};

struct vorn_mdl_dataset {
  vorn_data_buffer* buffers[kMostTensors];
  uint64_t count;
};

static char handle;  // for whatever only has to be there

static struct Block {
  void* address;
  uint64_t size;
  int isFree;
} blocks[kMostBlocks];
static int blockCount;
static uint64_t mostBlockBytes;

// The peak of this very program. What wait4 tells the parent starts at the parent's own size.
static unsigned long PeakResidentKiB(void) {
  unsigned long peak = 0;
  char line[256];
  FILE* status = fopen("/proc/self/status", "r");
  if (status == NULL) return 0;
  while (fgets(line, sizeof line, status) != NULL) {
    if (sscanf(line, "VmHWM: %lu", &peak) == 1) break;
  }
  fclose(status);
  return peak;
}

static void Report(const char* path) {
  const unsigned long peak = PeakResidentKiB();
  FILE* report = fopen(path, "w");
  if (report == NULL) return;
  fprintf(report, "%lu %lu\n", (unsigned long)mostBlockBytes, peak);
  fclose(report);
}

VORN_API vorn_status vorn_init(const char* configPath) {
  (void)configPath;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_finalize(void) {
  const char* path = getenv("VORN_IDLE_REPORT");
  if (path != NULL) Report(path);
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_set_device(int32_t deviceId) {
  (void)deviceId;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_reset_device(int32_t deviceId) {
  (void)deviceId;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_set_op_wait_timeout(uint32_t timeoutSeconds) {
  (void)timeoutSeconds;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_create_context(vorn_rt_context** context, int32_t deviceId) {
  (void)deviceId;
  *context = (vorn_rt_context*)&handle;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_destroy_context(vorn_rt_context* context) {
  (void)context;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_create_stream(vorn_rt_stream** stream) {
  *stream = (vorn_rt_stream*)&handle;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_destroy_stream(vorn_rt_stream* stream) {
  (void)stream;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_get_run_mode(vorn_rt_run_mode* runMode) {
  *runMode = 0;
  return VORN_SUCCESS;
}

static void CountBlocks(void) {
  uint64_t bytes = 0;
  for (int i = 0; i < blockCount; ++i) bytes += blocks[i].size;
  if (bytes > mostBlockBytes) mostBlockBytes = bytes;
}

VORN_API vorn_status vorn_rt_malloc(void** block, uint64_t size, vorn_rt_mem_policy policy) {
  (void)policy;
  for (int i = 0; i < blockCount; ++i) {
    if (!blocks[i].isFree || blocks[i].size != size) continue;
    blocks[i].isFree = 0;
    *block = blocks[i].address;
    return VORN_SUCCESS;
  }
  if (blockCount == kMostBlocks) return VORN_ERROR_OUT_OF_MEMORY;
  if (posix_memalign(block, kPageBytes, size) != 0) return VORN_ERROR_OUT_OF_MEMORY;
  blocks[blockCount++] = (struct Block){*block, size, 0};
  CountBlocks();
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_rt_free(void* block) {
  for (int i = 0; i < blockCount; ++i) {
    if (blocks[i].address != block) continue;
    blocks[i].isFree = 1;
    if (blocks[i].size < kKeptBytes) break;
    free(block);
    blocks[i] = blocks[--blockCount];
    break;
  }
  return VORN_SUCCESS;
}

static void ReadTensor(struct Tensor* tensor, char* line) {
  const char* name = strtok(line, " ");
  snprintf(tensor->dims.name, sizeof tensor->dims.name, "%s", name == NULL ? "" : name);
  uint64_t numbers[3] = {0, 0, 0};
  for (int i = 0; i < 3; ++i) {
    const char* word = strtok(NULL, " ");
    numbers[i] = word == NULL ? 0 : strtoull(word, NULL, 10);
  }
  tensor->type = (vorn_data_type)numbers[0];
  tensor->stride = numbers[1];
  tensor->size = numbers[2];
  tensor->dims.dimCount = 0;
  for (const char* word = strtok(NULL, " "); word != NULL; word = strtok(NULL, " ")) {
    tensor->dims.dims[tensor->dims.dimCount++] = strtoll(word, NULL, 10);
  }
}

static void AddScratch(void) {
  struct Tensor* tensor = &inputs[inputCount++];
  tensor->type = VORN_UINT8;
  tensor->stride = kScratchBytes;
  tensor->size = kScratchBytes;
  tensor->dims.dimCount = 1;
  tensor->dims.dims[0] = kScratchBytes;
}

VORN_API vorn_status vorn_mdl_load_from_mem(const void* image, uint64_t size, uint32_t* modelId) {
  // Only the head of a large image is the text.
  char text[4096];
  const uint64_t length = size < sizeof text ? size : sizeof text - 1;
  memcpy(text, image, length);
  text[length] = '\0';
  inputCount = outputCount = 0;
  char* rest = text;
  for (char* line = strsep(&rest, "\n"); line != NULL; line = strsep(&rest, "\n")) {
    if (strncmp(line, "input ", 6) == 0 && inputCount < kMostTensors - 2) {
      ReadTensor(&inputs[inputCount++], line + 6);
    } else if (strncmp(line, "output ", 7) == 0 && outputCount < kMostTensors) {
      ReadTensor(&outputs[outputCount++], line + 7);
    }
  }
  AddScratch();
  AddScratch();
  *modelId = 1;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_mdl_unload(uint32_t modelId) {
  (void)modelId;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_ext_get_mdl_net_type(uint32_t modelId, vorn_net_type* netType) {
  (void)modelId;
  *netType = VORN_NET_FEED_FORWARD;
  return VORN_SUCCESS;
}

VORN_API vorn_mdl_desc* vorn_mdl_create_desc(void) { return (vorn_mdl_desc*)&handle; }
VORN_API vorn_status vorn_mdl_destroy_desc(vorn_mdl_desc* desc) {
  (void)desc;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_mdl_get_desc(vorn_mdl_desc* desc, uint32_t modelId) {
  (void)desc;
  (void)modelId;
  return VORN_SUCCESS;
}
VORN_API uint64_t vorn_mdl_get_num_inputs(const vorn_mdl_desc* desc) {
  (void)desc;
  return inputCount;
}
VORN_API uint64_t vorn_mdl_get_num_outputs(const vorn_mdl_desc* desc) {
  (void)desc;
  return outputCount;
}
VORN_API vorn_status vorn_mdl_get_input_dims(const vorn_mdl_desc* desc, uint64_t index,
                                             vorn_mdl_io_dims* dims) {
  (void)desc;
  if (index >= inputCount) return VORN_ERROR_INVALID_ARGUMENT;
  *dims = inputs[index].dims;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_mdl_get_output_dims(const vorn_mdl_desc* desc, uint64_t index,
                                              vorn_mdl_io_dims* dims) {
  (void)desc;
  if (index >= outputCount) return VORN_ERROR_INVALID_ARGUMENT;
  *dims = outputs[index].dims;
  return VORN_SUCCESS;
}
VORN_API const char* vorn_mdl_get_output_name_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < outputCount ? outputs[index].dims.name : NULL;
}
VORN_API vorn_data_type vorn_mdl_get_input_data_type(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < inputCount ? inputs[index].type : VORN_FLOAT32;
}
VORN_API vorn_data_type vorn_mdl_get_output_data_type(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < outputCount ? outputs[index].type : VORN_FLOAT32;
}
VORN_API uint64_t vorn_mdl_get_input_size_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < inputCount ? inputs[index].size : 0;
}
VORN_API uint64_t vorn_mdl_get_output_size_by_index(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < outputCount ? outputs[index].size : 0;
}
VORN_API uint64_t vorn_mdl_get_input_default_stride(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < inputCount ? inputs[index].stride : 0;
}
VORN_API uint64_t vorn_mdl_get_output_default_stride(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  return index < outputCount ? outputs[index].stride : 0;
}
VORN_API vorn_format vorn_mdl_get_input_format(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  (void)index;
  return 0;
}
VORN_API vorn_format vorn_mdl_get_output_format(const vorn_mdl_desc* desc, uint64_t index) {
  (void)desc;
  (void)index;
  return 0;
}
VORN_API uint64_t vorn_data_type_size(vorn_data_type type) {
  static const uint64_t kBits[] = {32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8};
  return type < sizeof kBits / sizeof kBits[0] ? kBits[type] : 0;
}

VORN_API vorn_data_buffer* vorn_create_data_buffer(void* block, uint64_t size, uint64_t stride) {
  (void)stride;
  vorn_data_buffer* buffer = malloc(sizeof *buffer);
  if (buffer == NULL) return NULL;
  buffer->block = block;
  buffer->size = size;
  buffer->isFilled = 0;
  return buffer;
}
VORN_API vorn_status vorn_destroy_data_buffer(vorn_data_buffer* buffer) {
  free(buffer);
  return VORN_SUCCESS;
}
VORN_API void* vorn_get_data_buffer_addr(const vorn_data_buffer* buffer) { return buffer->block; }
VORN_API uint64_t vorn_get_data_buffer_size(const vorn_data_buffer* buffer) { return buffer->size; }

VORN_API vorn_mdl_dataset* vorn_mdl_create_dataset(void) {
  return calloc(1, sizeof(vorn_mdl_dataset));
}
VORN_API vorn_status vorn_mdl_destroy_dataset(vorn_mdl_dataset* dataset) {
  free(dataset);
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_mdl_add_dataset_buffer(vorn_mdl_dataset* dataset,
                                                 vorn_data_buffer* buffer) {
  if (dataset->count == kMostTensors) return VORN_ERROR_INVALID_ARGUMENT;
  dataset->buffers[dataset->count++] = buffer;
  return VORN_SUCCESS;
}
VORN_API uint64_t vorn_mdl_get_dataset_num_buffers(const vorn_mdl_dataset* dataset) {
  return dataset->count;
}
VORN_API vorn_data_buffer* vorn_mdl_get_dataset_buffer(const vorn_mdl_dataset* dataset,
                                                       uint64_t index) {
  return index < dataset->count ? dataset->buffers[index] : NULL;
}
VORN_API vorn_status vorn_mdl_set_dynamic_batch_size(uint32_t modelId, vorn_mdl_dataset* dataset,
                                                     uint64_t index, uint64_t batchSize) {
  (void)modelId;
  (void)dataset;
  (void)index;
  (void)batchSize;
  return VORN_SUCCESS;
}
VORN_API vorn_status vorn_mdl_set_total_t(uint32_t modelId, vorn_mdl_dataset* dataset,
                                          uint64_t totalT) {
  (void)modelId;
  (void)dataset;
  (void)totalT;
  return VORN_SUCCESS;
}

// Ten times about normal: twelve uniform numbers less their mean. Always the same sequence.
static float NextValue(uint64_t* state) {
  double sum = -6;
  for (int i = 0; i < 12; ++i) {
    *state = *state * 6364136223846793005U + 1442695040888963407U;
    sum += (double)(*state >> 32) / 4294967296.0;
  }
  return (float)(10 * sum);
}

// The values repeat, so that making them is next to nothing beside dumping them once.
static void Fill(float* values, uint64_t count) {
  const uint64_t distinct = count < kDistinctValues ? count : kDistinctValues;
  uint64_t state = 1;
  for (uint64_t i = 0; i < distinct; ++i) values[i] = NextValue(&state);
  for (uint64_t done = distinct; done < count; done += distinct) {
    const uint64_t rest = count - done;
    memcpy(values + done, values, (rest < distinct ? rest : distinct) * sizeof *values);
  }
}

VORN_API vorn_status vorn_mdl_execute(uint32_t modelId, const vorn_mdl_dataset* input,
                                      vorn_mdl_dataset* output) {
  (void)modelId;
  (void)input;
  for (uint64_t i = 0; i < output->count; ++i) {
    vorn_data_buffer* buffer = output->buffers[i];
    if (!buffer->isFilled && outputs[i].type == VORN_FLOAT32) {
      Fill(buffer->block, buffer->size / sizeof(float));
    }
    buffer->isFilled = 1;
  }
  const char* pause = getenv("VORN_IDLE_EXECUTE_US");
  if (pause != NULL) (void)usleep((useconds_t)strtoul(pause, NULL, 10));
  return VORN_SUCCESS;
}

// The link fails where an operation is missing above.
#define VORN_PLACE(name, ...) (void (*)(void)) name,
__attribute__((used)) static void (*const kAll[])(void) = {
    VORN_OPERATIONS(VORN_PLACE, VORN_NO_PARAMETER)};
