// The table of operations against the header: every function once, in its order, with the names of
// its parameters and the types that the table's words stand for.
#include "vorn/operations.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <type_traits>
#include <vector>

#include "shared/operations/words.h"
#include "support/files.h"
#include "vorn/vorn.h"

extern "C" int OperationsInC(void);

namespace {

// ---- The types, while this is compiled ----------------------------------------------------------

using vorn::operations::Parameter;
using vorn::operations::Role;
namespace thing = vorn::operations::thing;

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
// NOLINTBEGIN(bugprone-macro-parentheses): words of a table, which parentheses would change
#define VORN_CHECK(name, needs, role, kind, parameters)                                            \
  static_assert(                                                                                   \
      std::is_same_v<decltype(&name), decltype(Parameters<>() parameters)::Function<thing::kind>>, \
      "the table has other types for " #name);
VORN_OPERATIONS(VORN_CHECK, VORN_PARAMETER)
#undef VORN_CHECK
// NOLINTEND(bugprone-macro-parentheses)
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
