// The table of operations against the header: every function once, in its order, with the names of
// its parameters and the types that the table's words stand for.
#include "vorn/operations.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <type_traits>
#include <vector>

#include "support/files.h"
#include "vorn/vorn.h"

extern "C" int OperationsInC(void);

namespace {

// ---- The types, while this is compiled ----------------------------------------------------------

// Words of the table, as types in a namespace of their own.
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

template <Role kRole, typename Thing>
struct Parameter {
  using Type = typename decltype(ParameterType<kRole, Thing>())::type;
};

/// A list of types that grows by "+ Parameter", since the table has no commas between parameters.
template <typename... Types>
struct Parameters {
  template <typename Answer>
  using Function = Answer (*)(Types...);

  template <Role kRole, typename Thing>
  Parameters<Types..., typename Parameter<kRole, Thing>::Type> operator+(
      Parameter<kRole, Thing>) const;
};

#define VORN_PARAMETER(role, kind, name) +Parameter<Role::role, thing::kind>()
#define VORN_CHECK(name, needs, role, kind, parameters)                                            \
  static_assert(                                                                                   \
      std::is_same_v<decltype(&name), decltype(Parameters<>() parameters)::Function<thing::kind>>, \
      "the table has other types for " #name);
VORN_OPERATIONS(VORN_CHECK, VORN_PARAMETER)
#undef VORN_CHECK
#undef VORN_PARAMETER

// ---- Names and order, in the header's text ------------------------------------------------------

/// "vorn_rt_malloc(block, size, policy)" for each function that the header declares.
std::vector<std::string> DeclaredCalls() {
  const std::string header = support::ReadFile(VORN_HEADER);
  const std::regex declaration(R"(VORN_API[^;(]*[ *](vorn_\w+)\(([^)]*)\))");
  const std::regex lastWord(R"((\w+)\s*(,|$))");
  std::vector<std::string> calls;
  for (std::sregex_iterator at(header.begin(), header.end(), declaration), end; at != end; ++at) {
    std::string call = at->str(1) + "(";
    const std::string parameters = at->str(2) == "void" ? "" : at->str(2);
    for (std::sregex_iterator word(parameters.begin(), parameters.end(), lastWord); word != end;
         ++word) {
      call += word->str(1) + (word->str(2) == "," ? ", " : "");
    }
    calls.push_back(call + ")");
  }
  return calls;
}

std::vector<std::string> CallsOfTable() {
  std::vector<std::string> calls;
  const auto add = [&](const char* name, const std::vector<std::string>& parameters) {
    std::string call = std::string(name) + "(";
    for (const std::string& one : parameters) call += (&one == parameters.data() ? "" : ", ") + one;
    calls.push_back(call + ")");
  };
#define VORN_PARAMETER(role, kind, name) #name,
#define VORN_ADD(name, needs, role, kind, parameters) add(#name, {parameters});
  VORN_OPERATIONS(VORN_ADD, VORN_PARAMETER)
#undef VORN_ADD
#undef VORN_PARAMETER
  return calls;
}

TEST(VornOperations, AreThoseOfTheHeaderInItsOrder) {
  const std::vector<std::string> declared = DeclaredCalls();
  EXPECT_EQ(declared.size(), 44u);
  EXPECT_EQ(CallsOfTable(), declared);
}

TEST(VornOperations, AreAsManyInC) { EXPECT_EQ(OperationsInC(), 44); }

}  // namespace
