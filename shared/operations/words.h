// The words of vorn/operations.h as C++ types, and macros that make function heads of its
// parameters.
#ifndef VORN_SHARED_OPERATIONS_WORDS_H_
#define VORN_SHARED_OPERATIONS_WORDS_H_

#include <cstdint>
#include <type_traits>

#include "vorn/operations.h"
#include "vorn/vorn.h"

namespace vorn::operations {

/// Words of the table, as types in a namespace of their own.
namespace thing {
// NOLINTBEGIN(readability-identifier-naming): they are spelt as in the table
using STATUS = vorn_status;
using CONTEXT = vorn_rt_context*;
using STREAM = vorn_rt_stream*;
using DESC = vorn_mdl_desc*;
using DATASET = vorn_mdl_dataset*;
using BUFFER = vorn_data_buffer*;
using BLOCK = void*;
using IMAGE = const void*;
using PATH = const char*;
using NAME = const char*;
using MODEL = uint32_t;
using DEVICE = int32_t;
using DIMS = vorn_mdl_io_dims;
using TYPE = vorn_data_type;
using FORMAT = vorn_format;
using NET_TYPE = vorn_net_type;
using RUN_MODE = vorn_rt_run_mode;
using POLICY = vorn_rt_mem_policy;
using SECONDS = uint32_t;
using BYTES = uint64_t;
using STRIDE = uint64_t;
using BITS = uint64_t;
using COUNT = uint64_t;
using INDEX = uint64_t;
// NOLINTEND(readability-identifier-naming)
}  // namespace thing

enum class Role { ANSWERED, LENT, MADE, FILLED, USED, CHANGED, KEPT, ENDED };

template <Role kRole, typename Thing>
consteval auto ParameterType() {
  if constexpr (kRole == Role::MADE || kRole == Role::FILLED) {
    return std::type_identity<Thing*>();
  } else if constexpr (kRole == Role::USED && std::is_pointer_v<Thing>) {
    return std::type_identity<const std::remove_pointer_t<Thing>*>();
  } else {
    return std::type_identity<Thing>();
  }
}

/// A parameter of the table: its role, and the type that it has in vorn.h.
template <Role kParameterRole, typename Thing>
struct Parameter {
  // NOLINTNEXTLINE(bugprone-dynamic-static-initializers): it is a constant
  static constexpr Role kRole = kParameterRole;
  using Type = typename decltype(ParameterType<kParameterRole, Thing>())::type;
};

/// The operations, numbered in the order of vorn.h: kOperation_vorn_init is 0.
enum Operation : uint16_t {
#define VORN_NUMBER(name, needs, role, kind, parameters) kOperation_##name,
  VORN_OPERATIONS(VORN_NUMBER, VORN_NO_PARAMETER)
#undef VORN_NUMBER
      kOperations
};

/// Their names, by number.
inline constexpr const char* kOperationNames[kOperations] = {
#define VORN_NAME(name, needs, role, kind, parameters) #name,
    VORN_OPERATIONS(VORN_NAME, VORN_NO_PARAMETER)
#undef VORN_NAME
};

}  // namespace vorn::operations

// The parameters of an operation as a list of (role, kind, name), to go through with VORN_EACH:
//
//     #define WRAP(operation, needs, role, kind, parameters) ... VORN_EACH(VORN_DECLARED,
//     parameters) VORN_OPERATIONS(WRAP, VORN_LISTED)
#define VORN_LISTED(role, kind, name) , (role, kind, name)

// As they stand in the head of a function, in a call of it, and as a Parameter each.
#define VORN_DECLARED(role, kind, name)                         \
  ::vorn::operations::Parameter<::vorn::operations::Role::role, \
                                ::vorn::operations::thing::kind>::Type name
#define VORN_NAMED(role, kind, name) name
#define VORN_PARAMETER_OF(role, kind, name) \
  ::vorn::operations::Parameter<::vorn::operations::Role::role, ::vorn::operations::thing::kind>

// Applies a macro to each of up to four, with commas between.
#define VORN_EACH(macro, ...) VORN_EACH_(macro, _ __VA_ARGS__)
#define VORN_EACH_(macro, ...) VORN_EACH_PICK(__VA_ARGS__, 4, 3, 2, 1, 0)(macro, __VA_ARGS__)
#define VORN_EACH_PICK(_0, _1, _2, _3, _4, count, ...) VORN_EACH_##count
#define VORN_EACH_0(macro, _)
#define VORN_EACH_1(macro, _, a) macro a
#define VORN_EACH_2(macro, _, a, b) macro a, macro b
#define VORN_EACH_3(macro, _, a, b, c) macro a, macro b, macro c
#define VORN_EACH_4(macro, _, a, b, c, d) macro a, macro b, macro c, macro d

#endif  // VORN_SHARED_OPERATIONS_WORDS_H_
