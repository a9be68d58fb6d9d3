// The operations of vorn.h as variables of the same names, filled from a runtime that is opened
// while the program runs. Within this namespace a call reads as it does in any caller, and nothing
// is linked.
#ifndef VORN_TESTS_CONFORMANCE_OPERATIONS_H_
#define VORN_TESTS_CONFORMANCE_OPERATIONS_H_

#include <string>

#include "vorn/vorn.h"

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

namespace conformance {

// NOLINTNEXTLINE(bugprone-macro-parentheses): it is the name that is declared
#define VORN_DECLARE(name) inline decltype(&::name) name = nullptr;
VORN_OPERATIONS(VORN_DECLARE)
#undef VORN_DECLARE

/// Opens the runtime at `path` and looks every operation up, the first time it is called. Returns
/// an empty text, or what is missing.
std::string OpenRuntime(const std::string& path);

}  // namespace conformance

#endif  // VORN_TESTS_CONFORMANCE_OPERATIONS_H_
