/**
 * The operations of vorn.h as one table, for whatever goes through all of them: a test of runtimes,
 * a runtime that records what it is asked, a layer between a program and its runtime.
 *
 *     #define OPERATION(name, needs, role, thing, parameters) ...
 *     #define PARAMETER(role, thing, name) ...
 *     VORN_OPERATIONS(OPERATION, PARAMETER)
 *
 * expands to one OPERATION for each, in the order of vorn.h, which only what it expands to may
 * need. `role` and `thing` are those of its answer, and `parameters` is one PARAMETER for each of
 * its parameters, in order and with nothing in between; VORN_NO_PARAMETER leaves none.
 *
 * `needs` is what the caller has to have in place:
 *
 *     NOTHING   it may come at any time
 *     RUNTIME   `vorn_init` has succeeded
 *     CONTEXT   the same, and a context is current on the calling thread
 *
 * `thing` is what is handed over, and settles the type:
 *
 *     STATUS    vorn_status, not 0 on failure
 *     CONTEXT STREAM DESC DATASET BUFFER       a handle, null on failure; const where it is USED
 *     BLOCK     void*, an address of memory; null on failure
 *     IMAGE     const void*, the bytes of a model
 *     PATH NAME const char*, null on failure
 *     MODEL     uint32_t, the id of a loaded model
 *     DEVICE    int32_t, counted from 0
 *     DIMS      the record vorn_mdl_io_dims
 *     TYPE FORMAT NET_TYPE RUN_MODE POLICY     the type of that name in vorn.h
 *     SECONDS   uint32_t
 *     BYTES STRIDE BITS COUNT INDEX            uint64_t, 0 on failure; a stride is in bytes
 *
 * `role` is what the operation does to it, which is all there is to say of ownership:
 *
 *     ANSWERED  a plain value is returned
 *     LENT      what is returned belongs to a handle among the parameters, and lives as long
 *     MADE      the caller gets it, and has to end it: as an answer, or written to a place
 *     FILLED    a place for a plain value, written on success only
 *     USED      looked at during the call
 *     CHANGED   looked at and changed, or what it refers to is written
 *     KEPT      referred to beyond the call by what is made or changed, and has to outlive that
 *     ENDED     what a MADE had given; null, of a block, is harmless
 */
#ifndef VORN_OPERATIONS_H_
#define VORN_OPERATIONS_H_

/** A PARAMETER for a table without parameters. */
#define VORN_NO_PARAMETER(role, thing, name)

/* clang-format off */
#define VORN_OPERATIONS(OPERATION, PARAMETER)                                                      \
  OPERATION(vorn_init, NOTHING, ANSWERED, STATUS, PARAMETER(USED, PATH, configPath))               \
  OPERATION(vorn_finalize, NOTHING, ANSWERED, STATUS, )                                            \
  OPERATION(vorn_rt_set_device, RUNTIME, ANSWERED, STATUS, PARAMETER(USED, DEVICE, deviceId))      \
  OPERATION(vorn_rt_reset_device, NOTHING, ANSWERED, STATUS, PARAMETER(USED, DEVICE, deviceId))    \
  OPERATION(vorn_rt_set_op_wait_timeout, RUNTIME, ANSWERED, STATUS,                                \
            PARAMETER(USED, SECONDS, timeoutSeconds))                                              \
  OPERATION(vorn_rt_create_context, RUNTIME, ANSWERED, STATUS,                                     \
            PARAMETER(MADE, CONTEXT, context) PARAMETER(USED, DEVICE, deviceId))                   \
  OPERATION(vorn_rt_destroy_context, RUNTIME, ANSWERED, STATUS,                                    \
            PARAMETER(ENDED, CONTEXT, context))                                                    \
  OPERATION(vorn_rt_create_stream, CONTEXT, ANSWERED, STATUS, PARAMETER(MADE, STREAM, stream))     \
  OPERATION(vorn_rt_destroy_stream, CONTEXT, ANSWERED, STATUS, PARAMETER(ENDED, STREAM, stream))   \
  OPERATION(vorn_rt_get_run_mode, RUNTIME, ANSWERED, STATUS, PARAMETER(FILLED, RUN_MODE, runMode)) \
  OPERATION(vorn_rt_malloc, CONTEXT, ANSWERED, STATUS,                                             \
            PARAMETER(MADE, BLOCK, block) PARAMETER(USED, BYTES, size)                             \
            PARAMETER(USED, POLICY, policy))                                                       \
  OPERATION(vorn_rt_free, CONTEXT, ANSWERED, STATUS, PARAMETER(ENDED, BLOCK, block))               \
  OPERATION(vorn_mdl_load_from_mem, CONTEXT, ANSWERED, STATUS,                                     \
            PARAMETER(KEPT, IMAGE, image) PARAMETER(USED, BYTES, size)                             \
            PARAMETER(MADE, MODEL, modelId))                                                       \
  OPERATION(vorn_mdl_unload, CONTEXT, ANSWERED, STATUS, PARAMETER(ENDED, MODEL, modelId))          \
  OPERATION(vorn_ext_get_mdl_net_type, CONTEXT, ANSWERED, STATUS,                                  \
            PARAMETER(USED, MODEL, modelId) PARAMETER(FILLED, NET_TYPE, netType))                  \
  OPERATION(vorn_mdl_create_desc, CONTEXT, MADE, DESC, )                                           \
  OPERATION(vorn_mdl_destroy_desc, CONTEXT, ANSWERED, STATUS, PARAMETER(ENDED, DESC, desc))        \
  OPERATION(vorn_mdl_get_desc, CONTEXT, ANSWERED, STATUS,                                          \
            PARAMETER(CHANGED, DESC, desc) PARAMETER(USED, MODEL, modelId))                        \
  OPERATION(vorn_mdl_get_num_inputs, CONTEXT, ANSWERED, COUNT, PARAMETER(USED, DESC, desc))        \
  OPERATION(vorn_mdl_get_num_outputs, CONTEXT, ANSWERED, COUNT, PARAMETER(USED, DESC, desc))       \
  OPERATION(vorn_mdl_get_input_dims, CONTEXT, ANSWERED, STATUS,                                    \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index)                              \
            PARAMETER(FILLED, DIMS, dims))                                                         \
  OPERATION(vorn_mdl_get_output_dims, CONTEXT, ANSWERED, STATUS,                                   \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index)                              \
            PARAMETER(FILLED, DIMS, dims))                                                         \
  OPERATION(vorn_mdl_get_output_name_by_index, CONTEXT, LENT, NAME,                                \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_input_data_type, CONTEXT, ANSWERED, TYPE,                                 \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_output_data_type, CONTEXT, ANSWERED, TYPE,                                \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_input_size_by_index, CONTEXT, ANSWERED, BYTES,                            \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_output_size_by_index, CONTEXT, ANSWERED, BYTES,                           \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_input_default_stride, CONTEXT, ANSWERED, STRIDE,                          \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_output_default_stride, CONTEXT, ANSWERED, STRIDE,                         \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_input_format, CONTEXT, ANSWERED, FORMAT,                                  \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_mdl_get_output_format, CONTEXT, ANSWERED, FORMAT,                                 \
            PARAMETER(USED, DESC, desc) PARAMETER(USED, INDEX, index))                             \
  OPERATION(vorn_data_type_size, NOTHING, ANSWERED, BITS, PARAMETER(USED, TYPE, type))             \
  OPERATION(vorn_create_data_buffer, CONTEXT, MADE, BUFFER,                                        \
            PARAMETER(KEPT, BLOCK, block) PARAMETER(USED, BYTES, size)                             \
            PARAMETER(USED, STRIDE, stride))                                                       \
  OPERATION(vorn_destroy_data_buffer, CONTEXT, ANSWERED, STATUS, PARAMETER(ENDED, BUFFER, buffer)) \
  OPERATION(vorn_get_data_buffer_addr, CONTEXT, LENT, BLOCK, PARAMETER(USED, BUFFER, buffer))      \
  OPERATION(vorn_get_data_buffer_size, CONTEXT, ANSWERED, BYTES, PARAMETER(USED, BUFFER, buffer))  \
  OPERATION(vorn_mdl_create_dataset, CONTEXT, MADE, DATASET, )                                     \
  OPERATION(vorn_mdl_destroy_dataset, CONTEXT, ANSWERED, STATUS,                                   \
            PARAMETER(ENDED, DATASET, dataset))                                                    \
  OPERATION(vorn_mdl_add_dataset_buffer, CONTEXT, ANSWERED, STATUS,                                \
            PARAMETER(CHANGED, DATASET, dataset) PARAMETER(KEPT, BUFFER, buffer))                  \
  OPERATION(vorn_mdl_get_dataset_num_buffers, CONTEXT, ANSWERED, COUNT,                            \
            PARAMETER(USED, DATASET, dataset))                                                     \
  OPERATION(vorn_mdl_get_dataset_buffer, CONTEXT, LENT, BUFFER,                                    \
            PARAMETER(USED, DATASET, dataset) PARAMETER(USED, INDEX, index))                       \
  OPERATION(vorn_mdl_set_dynamic_batch_size, CONTEXT, ANSWERED, STATUS,                            \
            PARAMETER(USED, MODEL, modelId) PARAMETER(CHANGED, DATASET, dataset)                   \
            PARAMETER(USED, INDEX, index) PARAMETER(USED, COUNT, batchSize))                       \
  OPERATION(vorn_mdl_set_total_t, CONTEXT, ANSWERED, STATUS,                                       \
            PARAMETER(USED, MODEL, modelId) PARAMETER(CHANGED, DATASET, dataset)                   \
            PARAMETER(USED, COUNT, totalT))                                                        \
  OPERATION(vorn_mdl_execute, CONTEXT, ANSWERED, STATUS,                                           \
            PARAMETER(USED, MODEL, modelId) PARAMETER(USED, DATASET, input)                        \
            PARAMETER(CHANGED, DATASET, output))
/* clang-format on */

#endif /* VORN_OPERATIONS_H_ */
