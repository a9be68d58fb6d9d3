#include "host/engine/engine_cause.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace vorn::host {
namespace {

TEST(ShortCause, KeepsWhatIsShort) {
  EXPECT_EQ(ShortCause(""), "");
  EXPECT_EQ(ShortCause("Fatal error: Foo(17) is not a registered function/op"),
            "Fatal error: Foo(17) is not a registered function/op");
  EXPECT_EQ(ShortCause("see model.h: it has 3"), "see model.h: it has 3");
  EXPECT_EQ(ShortCause("see model.h:a it has 3"), "see model.h:a it has 3");
  EXPECT_EQ(ShortCause("see model.h:12"), "see model.h:12");
}

TEST(ShortCause, LeavesOutPlacesAndSignatures) {
  EXPECT_EQ(
      ShortCause("Exception during initialization: /src/a/utils.cc:413 n::Status n::Save(const "
                 "n::Env&, const std::vector<int>&, n::F<void(int)>&) !Has(x) was false.  "),
      "Exception during initialization: !Has(x) was false.");
  EXPECT_EQ(
      ShortCause("Non-zero status code returned while running Reshape node. Name:'r' Status "
                 "Message: /src/reshape_helper.h:47 n::Helper::Helper(const n::Shape&, bool) "
                 "size == wanted was false. Input shape:{1,3}, requested shape:{2}\n"),
      "Non-zero status code returned while running Reshape node. Name:'r' Status Message: size "
      "== wanted was false. Input shape:{1,3}, requested shape:{2}");
  EXPECT_EQ(
      ShortCause("/a.cpp:1 void n::F() const a /b.cc:22 T n::G(int) [with T = int; U = n::V] b"),
      "a b");
  EXPECT_EQ(ShortCause("/a.cc:1 n::F(int)::<lambda(const n::T&)> [with X = int] wrong"), "wrong");
  EXPECT_EQ(ShortCause("/a.cc:1 bool n::C::operator()(int) const wrong"), "wrong");
  EXPECT_EQ(ShortCause("/a.hpp:0 void n::F() it /a.h:9 void n::F() is /a.cpp:90 void n::F() wrong"),
            "it is wrong");
  EXPECT_EQ(ShortCause("/a.cc:1 (n.size() == 1) was false"), "(n.size() == 1) was false");
}

TEST(ShortCause, EndsWithALineAndWhereItGetsLong) {
  EXPECT_EQ(ShortCause("wrong\nStacktrace:\n0x1"), "wrong");
  EXPECT_EQ(ShortCause(std::string(400, 'a')), std::string(300, 'a') + "...");
  EXPECT_EQ(ShortCause("/a.cc:1 void n::F(" + std::string(400, 'a')), "");
}

TEST(CauseOf, LogsTheWholeTextForThoseWhoWantIt) {
  const std::runtime_error fault("/a.cc:1 void n::F(int) wrong");
  for (const bool isFull : {false, true}) {
    setenv("VORN_LOG", isFull ? "info" : "1", 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(CauseOf(fault), "wrong");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              isFull ? "vorn: engine: /a.cc:1 void n::F(int) wrong\n" : "");
  }
  unsetenv("VORN_LOG");
}

}  // namespace
}  // namespace vorn::host
