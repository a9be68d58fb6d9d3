// How steps below the C interface are refused.
#ifndef VORN_TESTS_RUNTIME_HOST_REFUSAL_H_
#define VORN_TESTS_RUNTIME_HOST_REFUSAL_H_

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "host/common/failure.h"

/// The reason why `steps` are refused, with that status; empty if they are not.
template <typename Steps>
std::string ReasonOf(vorn_status status, Steps&& steps) {
  try {
    std::forward<Steps>(steps)();
    return "";
  } catch (const vorn::host::Failure& e) {
    EXPECT_EQ(e.status(), status);
    return e.what();
  }
}

/// VORN_SUCCESS, or what they fail with.
template <typename Steps>
vorn_status StatusOf(Steps&& steps) {
  try {
    std::forward<Steps>(steps)();
    return VORN_SUCCESS;
  } catch (const vorn::host::Failure& e) {
    return e.status();
  }
}

#endif  // VORN_TESTS_RUNTIME_HOST_REFUSAL_H_
