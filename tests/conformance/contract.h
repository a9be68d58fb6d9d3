// What every test of the suite is: a contract of vorn.h that a runtime keeps.
//
//     CONTRACT(Memory, GivesBlocksThatDoNotOverlap) { ... vorn_rt_malloc(...) ... }
//
// A contract runs in a child process of its own, so that a runtime that crashes, hangs, or comes
// up only once in a process, fails one contract and not the rest.
#ifndef VORN_TESTS_CONFORMANCE_CONTRACT_H_
#define VORN_TESTS_CONFORMANCE_CONTRACT_H_

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "operations.h"
#include "options.h"

namespace conformance {

class Contract : public testing::Test {
 protected:
  /// The contract itself. May throw what `Require` throws.
  virtual void Holds() = 0;

  /// The option without which there is nothing to test; empty if all is there.
  virtual std::string Lacks() const { return ""; }

  /// Before and after `Holds`; `End` runs also if one of the others failed.
  virtual void Begin() {}
  virtual void End() {}

  /// Ends the contract where the model gives nothing to test it with.
  [[noreturn]] static void LeaveOut(const std::string& reason);

 private:
  void TestBody() final;
  void HoldHere();
};

/// Ends the contract with a failure if a step fails that it cannot go on without.
void Require(bool holds, const std::string& what, const char* file = __builtin_FILE(),
             int line = __builtin_LINE());

/// As long as it lives, the runtime is up, the device is set, and a context is current on the
/// thread that made it. Ends the contract if a step fails. Undoes the steps that were done, also if
/// a later one failed, and expects each to be undone.
class Up {
 public:
  Up();
  Up(const Up&) = delete;
  Up& operator=(const Up&) = delete;
  ~Up();

  /// Null where a contract has destroyed it.
  vorn_rt_context* context = nullptr;

 private:
  struct NoStep {};
  explicit Up(NoStep /*unused*/) {}

  bool isUp_ = false;
  bool isDeviceSet_ = false;
};

/// The runtime is up while the contract is tried.
class UpContract : public Contract {
 protected:
  void Begin() override { up.emplace(); }
  void End() override { up.reset(); }

  std::optional<Up> up;
};

}  // namespace conformance

// The group is the name of a class that is a Contract.
// NOLINTBEGIN(bugprone-macro-parentheses): a base class takes none
#define CONTRACT(Group, Name)                                                    \
  class Group##Name final : public Group {                                       \
    void Holds() override;                                                       \
  };                                                                             \
  [[maybe_unused]] const testing::TestInfo* const k##Group##Name =               \
      testing::RegisterTest(#Group, #Name, nullptr, nullptr, __FILE__, __LINE__, \
                            []() -> Group* { return new Group##Name; });         \
  void Group##Name::Holds()
// NOLINTEND(bugprone-macro-parentheses)

#endif  // VORN_TESTS_CONFORMANCE_CONTRACT_H_
