/**
 * The C interface of the `vorn` inference runtime.
 *
 * A runtime is one shared library, `libvorn.so`, that exports the functions below with C linkage.
 * `vorn-run` calls nothing else. Whoever writes a runtime (the host runtime in `runtime/host`, the
 * scriptable one in `tests/scripted`, an accelerator's own) implements this page.
 *
 * Conventions
 *
 *  1. Handles. Contexts, streams, descriptions, datasets and data buffers are opaque pointers made
 *     by a `create` operation and ended by the `destroy` operation of the same noun. A model is
 *     named by an unsigned 32-bit id, a device by a signed 32-bit number counted from 0.
 *  2. Statuses. An operation that returns `vorn_status` returns 0 on success and any other value on
 *     failure; outputs are written on success only. An operation that returns a handle returns null
 *     on failure, one that returns a size, stride or count returns 0 on failure.
 *  3. Ownership. Whoever creates a handle destroys it, and whoever allocates a block frees it. A
 *     data buffer refers to a block and does not own it; a dataset refers to data buffers and does
 *     not own them; a model refers to the image it was loaded from, which must outlive the model.
 *     Names and records handed out by a description stay valid until the description is destroyed.
 *  4. Sizes, strides and counts are unsigned 64-bit and in bytes unless said otherwise; only
 *     `vorn_data_type_size` answers in bits.
 *  5. Tensors. The last dimension of a tensor is its row. A row of `W` elements of `e` bytes lies
 *     dense; rows start `stride` bytes apart, `stride >= W * e`, and what lies between two rows is
 *     padding that neither side reads for its value. One batch item has `size / stride` rows; batch
 *     item `b` of a block starts at byte `b * size`:
 *
 *         | row 0 .. W*e | pad .. stride | row 1 | pad | ... | row R-1 | pad |   <- size, batch 0
 *         | row 0 ...                                                  | pad |   <- size, batch 1
 *
 *  6. Model inputs, by index: the data inputs, then the rpn inputs of a detection model, then the
 *     task buffer (count - 2) and the work buffer (count - 1), scratch blocks that the runtime
 *     wants zero-filled from its caller before the first execution over them. An rpn input is
 *     float32 of [1, 4] or [4, classes], and its block holds one item whatever the batch. The
 *     buffers of a dataset stand in index order.
 *  7. The dims record is 1160 bytes without padding: a zero-terminated name of 128 characters, the
 *     number of dimensions, and 128 signed 64-bit dimensions, outermost first, of which the first
 *     `dimCount` count. There is at least one, and each is at least 1; a dimension that the model
 *     leaves open for the batch shows as 1.
 *  8. Threads. A context is current on the thread that created it; model, memory and dataset
 *     operations are called from a thread with a current context. Every operation is synchronous.
 *  9. No C++ exception leaves the library, and it writes neither to standard output nor, unless
 *     asked to, to standard error.
 * 10. Refusals. Before `vorn_init` and after `vorn_finalize`, whatever makes or uses something
 *     fails. A null handle, a null place for a result, an index beyond its count, the id of no
 *     loaded model and the number of no device fail too, and nothing else happens. A handle that
 *     was destroyed or is of another kind should fail likewise; a runtime that trusts its callers
 *     may leave that undefined.
 */
#ifndef VORN_VORN_H_
#define VORN_VORN_H_

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VORN_API __attribute__((visibility("default")))
#else
#define VORN_API
#endif

/* ---- Types ----------------------------------------------------------------------------------- */

/** 0 is success. The named failures are those of the host runtime; callers only test for 0. */
typedef int32_t vorn_status;

enum {
  VORN_SUCCESS = 0,
  VORN_ERROR_INVALID_ARGUMENT = 1, /**< null, index or count out of range, size too small */
  VORN_ERROR_INVALID_HANDLE = 2,   /**< never created, already destroyed or of another kind */
  VORN_ERROR_NOT_INITIALIZED = 3,  /**< before `vorn_init`, after `vorn_finalize`, no context */
  VORN_ERROR_CONFIG = 4,           /**< the JSON file cannot be read or says something unknown */
  VORN_ERROR_OUT_OF_MEMORY = 5,    /**< there is no memory for the block */
  VORN_ERROR_MODEL = 6,            /**< the image is not a model that this runtime can run */
  VORN_ERROR_EXECUTION = 7,        /**< the model failed while it ran */
  VORN_ERROR_TIMEOUT = 8,          /**< an operator took longer than its time-out */
  VORN_ERROR_UNSUPPORTED = 9,      /**< valid, but not done by this runtime */
  VORN_ERROR_INTERNAL = 10         /**< a fault of the runtime itself */
};

typedef struct vorn_rt_context vorn_rt_context;
typedef struct vorn_rt_stream vorn_rt_stream;
typedef struct vorn_mdl_desc vorn_mdl_desc;
typedef struct vorn_mdl_dataset vorn_mdl_dataset;
typedef struct vorn_data_buffer vorn_data_buffer;

/**
 * Element types. A dump shows codes 0, 2, 4, 6 and 7 as the values that they hold, code 1 as its
 * bits read as an unsigned 16-bit integer, and every other code as its bits read as a 32-bit float.
 */
typedef uint32_t vorn_data_type;

enum {
  VORN_FLOAT32 = 0,
  VORN_FLOAT16 = 1,
  VORN_INT8 = 2,
  VORN_INT32 = 3,
  VORN_UINT8 = 4,
  VORN_UINT32 = 5,
  VORN_INT16 = 6,
  VORN_UINT16 = 7,
  VORN_INT64 = 8,
  VORN_UINT64 = 9,
  VORN_FLOAT64 = 10,
  VORN_BOOL = 11 /**< one byte per element, 0 or 1 */
};

/** The order of the dimensions; informative. */
typedef int32_t vorn_format;

enum {
  VORN_FORMAT_NCHW = 0,
  VORN_FORMAT_NHWC = 1,
  VORN_FORMAT_ND = 2 /**< no meaning attached to the dimensions */
};

/** What kind of network a model is. */
typedef int32_t vorn_net_type;

enum { VORN_NET_FEED_FORWARD = 0, VORN_NET_DETECTION = 1, VORN_NET_RECURRENT = 2 };

/** Where the caller runs. The value 0 is the only one that `vorn-run` accepts. */
typedef int32_t vorn_rt_run_mode;

enum { VORN_RUN_MODE_DEVICE = 0, VORN_RUN_MODE_HOST = 1 };

/** Which memory to allocate from. Its meaning is the runtime's; `vorn-run` always passes 2. */
typedef uint32_t vorn_rt_mem_policy;

enum { VORN_MEM_NORMAL_ONLY = 2 };

enum { VORN_MAX_NAME = 128, VORN_MAX_DIMS = 128 };

/** Name and shape of one model input or output (convention 7). */
typedef struct vorn_mdl_io_dims {
  char name[VORN_MAX_NAME];
  uint64_t dimCount;
  int64_t dims[VORN_MAX_DIMS];
} vorn_mdl_io_dims;

#ifdef __cplusplus
static_assert(sizeof(vorn_mdl_io_dims) == 1160, "the dims record is 1160 bytes");
#else
_Static_assert(sizeof(vorn_mdl_io_dims) == 1160, "the dims record is 1160 bytes");
#endif

/* ---- The runtime as a whole ------------------------------------------------------------------ */

/**
 * Brings the runtime up for the process. `configPath` names a JSON file whose content is the
 * runtime's own; one that cannot be read is refused. Comes before every other operation, and may
 * come again after `vorn_finalize`.
 */
VORN_API vorn_status vorn_init(const char* configPath);

/** Takes the runtime down. Must do no harm if `vorn_init` failed or never ran (a status then). */
VORN_API vorn_status vorn_finalize(void);

/* ---- Device, context, stream ----------------------------------------------------------------- */

/** Selects the device for the calling thread. */
VORN_API vorn_status vorn_rt_set_device(int32_t deviceId);

/** Releases the device. Must be harmless for a device that was never set (a status then). */
VORN_API vorn_status vorn_rt_reset_device(int32_t deviceId);

/** How long one operator may take in later executions, in seconds; 0 means without limit. */
VORN_API vorn_status vorn_rt_set_op_wait_timeout(uint32_t timeoutSeconds);

/** Creates a context on the device and makes it current for the calling thread. */
VORN_API vorn_status vorn_rt_create_context(vorn_rt_context** context, int32_t deviceId);
VORN_API vorn_status vorn_rt_destroy_context(vorn_rt_context* context);

/** Creates a stream in the current context. */
VORN_API vorn_status vorn_rt_create_stream(vorn_rt_stream** stream);
VORN_API vorn_status vorn_rt_destroy_stream(vorn_rt_stream* stream);

VORN_API vorn_status vorn_rt_get_run_mode(vorn_rt_run_mode* runMode);

/* ---- Runtime memory -------------------------------------------------------------------------- */

/** Allocates `size` bytes, not cleared, that model and caller can reach; aligned to 16 bytes. */
VORN_API vorn_status vorn_rt_malloc(void** block, uint64_t size, vorn_rt_mem_policy policy);

/** Returns a block. A null pointer is harmless. */
VORN_API vorn_status vorn_rt_free(void* block);

/* ---- Models ---------------------------------------------------------------------------------- */

/**
 * Loads a model from its image of `size` bytes. The image is only read, and stays where it is until
 * the unload. An image that is not a model, or only the first part of one, is refused.
 */
VORN_API vorn_status vorn_mdl_load_from_mem(const void* image, uint64_t size, uint32_t* modelId);
VORN_API vorn_status vorn_mdl_unload(uint32_t modelId);

/** See `vorn_net_type`. */
VORN_API vorn_status vorn_ext_get_mdl_net_type(uint32_t modelId, vorn_net_type* netType);

/* ---- Descriptions ---------------------------------------------------------------------------- */

/** Creates an empty description; `vorn_mdl_get_desc` fills it for a loaded model. */
VORN_API vorn_mdl_desc* vorn_mdl_create_desc(void);
VORN_API vorn_status vorn_mdl_destroy_desc(vorn_mdl_desc* desc);
VORN_API vorn_status vorn_mdl_get_desc(vorn_mdl_desc* desc, uint32_t modelId);

/** The count of inputs, task buffer and work buffer included. */
VORN_API uint64_t vorn_mdl_get_num_inputs(const vorn_mdl_desc* desc);
VORN_API uint64_t vorn_mdl_get_num_outputs(const vorn_mdl_desc* desc);

VORN_API vorn_status vorn_mdl_get_input_dims(const vorn_mdl_desc* desc, uint64_t index,
                                             vorn_mdl_io_dims* dims);
VORN_API vorn_status vorn_mdl_get_output_dims(const vorn_mdl_desc* desc, uint64_t index,
                                              vorn_mdl_io_dims* dims);

/** The whole name of an output, zero-terminated, never null for a valid index. */
VORN_API const char* vorn_mdl_get_output_name_by_index(const vorn_mdl_desc* desc, uint64_t index);

VORN_API vorn_data_type vorn_mdl_get_input_data_type(const vorn_mdl_desc* desc, uint64_t index);
VORN_API vorn_data_type vorn_mdl_get_output_data_type(const vorn_mdl_desc* desc, uint64_t index);

/** Bytes of one batch item, padding included: rows * stride. */
VORN_API uint64_t vorn_mdl_get_input_size_by_index(const vorn_mdl_desc* desc, uint64_t index);
VORN_API uint64_t vorn_mdl_get_output_size_by_index(const vorn_mdl_desc* desc, uint64_t index);

/** Bytes from the start of one row to the start of the next. */
VORN_API uint64_t vorn_mdl_get_input_default_stride(const vorn_mdl_desc* desc, uint64_t index);
VORN_API uint64_t vorn_mdl_get_output_default_stride(const vorn_mdl_desc* desc, uint64_t index);

VORN_API vorn_format vorn_mdl_get_input_format(const vorn_mdl_desc* desc, uint64_t index);
VORN_API vorn_format vorn_mdl_get_output_format(const vorn_mdl_desc* desc, uint64_t index);

/** Bits of one element; 0 for a code that is not known. */
VORN_API uint64_t vorn_data_type_size(vorn_data_type type);

/* ---- Data buffers and datasets --------------------------------------------------------------- */

/** Wraps `size` bytes at `block`, whose rows lie `stride` bytes apart. */
VORN_API vorn_data_buffer* vorn_create_data_buffer(void* block, uint64_t size, uint64_t stride);

/** Destroys the data buffer; the block behind it stays. */
VORN_API vorn_status vorn_destroy_data_buffer(vorn_data_buffer* buffer);
VORN_API void* vorn_get_data_buffer_addr(const vorn_data_buffer* buffer);
VORN_API uint64_t vorn_get_data_buffer_size(const vorn_data_buffer* buffer);

VORN_API vorn_mdl_dataset* vorn_mdl_create_dataset(void);

/** Destroys the dataset; its data buffers, which may be gone by then, are not touched. */
VORN_API vorn_status vorn_mdl_destroy_dataset(vorn_mdl_dataset* dataset);

/** Appends a data buffer; its position is the index of the model input or output that it serves. */
VORN_API vorn_status vorn_mdl_add_dataset_buffer(vorn_mdl_dataset* dataset,
                                                 vorn_data_buffer* buffer);
VORN_API uint64_t vorn_mdl_get_dataset_num_buffers(const vorn_mdl_dataset* dataset);

/** The data buffer at a position, or null. */
VORN_API vorn_data_buffer* vorn_mdl_get_dataset_buffer(const vorn_mdl_dataset* dataset,
                                                       uint64_t index);

/* ---- Settings of one input dataset, and execution -------------------------------------------- */

/**
 * Sets how many batch items the dataset's blocks hold; 1 if never set. `index` is reserved and
 * 0. May come before the dataset has all its buffers. Every model takes 1; 0 is refused.
 */
VORN_API vorn_status vorn_mdl_set_dynamic_batch_size(uint32_t modelId, vorn_mdl_dataset* dataset,
                                                     uint64_t index, uint64_t batchSize);

/**
 * Sets how many frames of a recurrent model's input count: 1 up to the first dimension of input 0,
 * and nothing else. What lies in the frames behind them is not read for its value.
 */
VORN_API vorn_status vorn_mdl_set_total_t(uint32_t modelId, vorn_mdl_dataset* dataset,
                                          uint64_t totalT);

/**
 * Runs the model over the input blocks and fills the rows of the output blocks. Returns when that
 * is done. Data inputs are only read, and executing again over the same ones gives the same
 * outputs. A dataset with fewer or more buffers than the model has inputs, or outputs, is refused;
 * so is an input block that is smaller than its batch, and an output block smaller than one item.
 */
VORN_API vorn_status vorn_mdl_execute(uint32_t modelId, const vorn_mdl_dataset* input,
                                      vorn_mdl_dataset* output);

#ifdef __cplusplus
}
#endif

#endif /* VORN_VORN_H_ */
