#include "host/engine/engine_failure.h"

#include <gtest/gtest.h>

#include <string>

namespace vorn::host {
namespace {

const std::string kRunning = "Non-zero status code returned while running ";
const std::string kArena =
    "/src/core/framework/bfc_arena.cc:358 void* onnxruntime::BFCArena::AllocateRawInternal(size_t, "
    "bool, onnxruntime::Stream*) Failed to allocate memory for requested buffer of size ";

TEST(IsOutOfMemory, IsTrueForAnAllocationWhereverItFailed) {
  EXPECT_TRUE(IsOutOfMemory(ORT_RUNTIME_EXCEPTION, "std::bad_alloc"));
  EXPECT_TRUE(
      IsOutOfMemory(ORT_RUNTIME_EXCEPTION, "Exception during initialization: std::bad_alloc"));
  const std::string node = kRunning + "Add node. Name:'a' Status Message: ";
  EXPECT_TRUE(IsOutOfMemory(ORT_RUNTIME_EXCEPTION, node + "std::bad_alloc"));
  EXPECT_TRUE(IsOutOfMemory(ORT_FAIL, node + kArena + "4096\n"));
  const std::string outer = kRunning + "If node. Name:'b' Status Message: ";
  EXPECT_TRUE(IsOutOfMemory(ORT_RUNTIME_EXCEPTION, outer + node + "std::bad_alloc"));
}

TEST(IsOutOfMemory, IsNotTakenInByNames) {
  const std::string name = "a' Status Message: std::bad_alloc";
  EXPECT_FALSE(IsOutOfMemory(ORT_RUNTIME_EXCEPTION, kRunning + "Add node. Name:'" + name +
                                                        "' Status Message: no such axis"));
  EXPECT_FALSE(IsOutOfMemory(ORT_RUNTIME_EXCEPTION, kRunning + "std::bad_alloc node. Name:'' "
                                                               "Status Message: no such axis"));
  EXPECT_FALSE(IsOutOfMemory(ORT_INVALID_GRAPH, "No Op registered for std::bad_alloc"));
  EXPECT_FALSE(IsOutOfMemory(ORT_INVALID_GRAPH, "std::bad_alloc"));
  EXPECT_FALSE(IsOutOfMemory(ORT_RUNTIME_EXCEPTION, "no such tensor: std::bad_alloc"));
  EXPECT_FALSE(IsOutOfMemory(ORT_FAIL, "/src/core/graph.cc:12 f() no tensor " + kArena + "4096"));
  EXPECT_FALSE(IsOutOfMemory(ORT_FAIL, kArena + "4096 elements"));
  EXPECT_FALSE(IsOutOfMemory(ORT_FAIL, kArena));
  EXPECT_FALSE(IsOutOfMemory(ORT_FAIL, ""));
}

}  // namespace
}  // namespace vorn::host
