// The names of the operations of vorn.h.
#ifndef VORN_TESTS_CONFORMANCE_OPERATION_NAMES_H_
#define VORN_TESTS_CONFORMANCE_OPERATION_NAMES_H_

// Every operation once, in the header's order.
#define VORN_OPERATIONS(OP)              \
  OP(vorn_init)                          \
  OP(vorn_finalize)                      \
  OP(vorn_rt_set_device)                 \
  OP(vorn_rt_reset_device)               \
  OP(vorn_rt_set_op_wait_timeout)        \
  OP(vorn_rt_create_context)             \
  OP(vorn_rt_destroy_context)            \
  OP(vorn_rt_create_stream)              \
  OP(vorn_rt_destroy_stream)             \
  OP(vorn_rt_get_run_mode)               \
  OP(vorn_rt_malloc)                     \
  OP(vorn_rt_free)                       \
  OP(vorn_mdl_load_from_mem)             \
  OP(vorn_mdl_unload)                    \
  OP(vorn_ext_get_mdl_net_type)          \
  OP(vorn_mdl_create_desc)               \
  OP(vorn_mdl_destroy_desc)              \
  OP(vorn_mdl_get_desc)                  \
  OP(vorn_mdl_get_num_inputs)            \
  OP(vorn_mdl_get_num_outputs)           \
  OP(vorn_mdl_get_input_dims)            \
  OP(vorn_mdl_get_output_dims)           \
  OP(vorn_mdl_get_output_name_by_index)  \
  OP(vorn_mdl_get_input_data_type)       \
  OP(vorn_mdl_get_output_data_type)      \
  OP(vorn_mdl_get_input_size_by_index)   \
  OP(vorn_mdl_get_output_size_by_index)  \
  OP(vorn_mdl_get_input_default_stride)  \
  OP(vorn_mdl_get_output_default_stride) \
  OP(vorn_mdl_get_input_format)          \
  OP(vorn_mdl_get_output_format)         \
  OP(vorn_data_type_size)                \
  OP(vorn_create_data_buffer)            \
  OP(vorn_destroy_data_buffer)           \
  OP(vorn_get_data_buffer_addr)          \
  OP(vorn_get_data_buffer_size)          \
  OP(vorn_mdl_create_dataset)            \
  OP(vorn_mdl_destroy_dataset)           \
  OP(vorn_mdl_add_dataset_buffer)        \
  OP(vorn_mdl_get_dataset_num_buffers)   \
  OP(vorn_mdl_get_dataset_buffer)        \
  OP(vorn_mdl_set_dynamic_batch_size)    \
  OP(vorn_mdl_set_total_t)               \
  OP(vorn_mdl_execute)

#endif  // VORN_TESTS_CONFORMANCE_OPERATION_NAMES_H_
