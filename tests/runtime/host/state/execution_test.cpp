#include "host/state/execution.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/state/loading.h"
#include "runtime/host/refusal.h"
#include "runtime/host/state/running.h"

namespace vorn::host {
namespace {

using Floats = std::vector<float>;

class ExecutionTest : public RunningTest {
 protected:
  void SetUp() override {
    RunningTest::SetUp();
    model_ = LoadModel(image_.data(), image_.size());
    in_ = NewInput(x_);
    out_ = NewDataset({{y_.data(), 16, 16}});
  }
  void TearDown() override {
    RunningTest::TearDown();
    const Change tables;
    for (vorn_mdl_dataset* dataset : datasets_) tables->datasets.Destroy(dataset);
    for (vorn_data_buffer* buffer : buffers_) tables->datasets.DestroyBuffer(buffer);
  }

  struct Memory {
    void* address;
    uint64_t bytes;
    uint64_t stride;
  };

  vorn_mdl_dataset* NewDataset(const std::vector<Memory>& blocks) {
    const Change tables;
    datasets_.push_back(tables->datasets.Create());
    for (const Memory& block : blocks) {
      buffers_.push_back(tables->datasets.CreateBuffer(block.address, block.bytes, block.stride));
      tables->datasets.Add(datasets_.back(), buffers_.back());
    }
    return datasets_.back();
  }
  vorn_mdl_dataset* NewInput(Floats& values) {
    return NewDataset({{values.data(), sizeof(float) * values.size(), 16},
                       {task_.data(), task_.size(), 256},
                       {work_.data(), work_.size(), 256}});
  }

  void Execute() { ExecuteModel(model_, in_, out_); }

  const std::string image_ = Negating();
  uint32_t model_ = 0;
  Floats x_ = {1, 2, 3, 4}, y_ = {0, 0, 0, 0};
  std::vector<std::byte> task_ = std::vector<std::byte>(4096), work_ = task_;
  vorn_mdl_dataset* in_ = nullptr;
  vorn_mdl_dataset* out_ = nullptr;
  std::vector<vorn_mdl_dataset*> datasets_;
  std::vector<vorn_data_buffer*> buffers_;
};

TEST_F(ExecutionTest, GoesFromOneDatasetToTheOther) {
  Execute();
  EXPECT_EQ(y_, (Floats{-1, -2, -3, -4}));
  x_ = {5, 6, 7, 8};
  Execute();
  EXPECT_EQ(y_, (Floats{-5, -6, -7, -8}));
}

TEST_F(ExecutionTest, SeesEachOfTheTwoDatasetsChange) {
  Floats otherX = {9, 9, 9, 9}, otherY = {0, 0, 0, 0};
  vorn_mdl_dataset* otherIn = NewInput(otherX);
  vorn_mdl_dataset* otherOut = NewDataset({{otherY.data(), 16, 16}});
  // Nothing changes the tables in between.
  ExecuteModel(model_, in_, out_);
  ExecuteModel(model_, otherIn, out_);
  EXPECT_EQ(y_, (Floats{-9, -9, -9, -9}));
  ExecuteModel(model_, otherIn, otherOut);
  EXPECT_EQ(otherY, (Floats{-9, -9, -9, -9}));
  ExecuteModel(model_, in_, otherOut);
  EXPECT_EQ(otherY, (Floats{-1, -2, -3, -4}));
}

TEST_F(ExecutionTest, TakesTheBatchOfTheInputDataset) {
  x_ = {1, 2, 3, 4, 5, 6, 7, 8};
  y_.resize(8);
  in_ = NewInput(x_);
  out_ = NewDataset({{y_.data(), 32, 16}});
  Change()->datasets.SetBatch(out_, 0, 2);
  Execute();
  EXPECT_EQ(y_, (Floats{-1, -2, -3, -4, 0, 0, 0, 0}));
  Change()->datasets.SetBatch(in_, 0, 2);
  Execute();
  EXPECT_EQ(y_, (Floats{-1, -2, -3, -4, -5, -6, -7, -8}));
}

TEST_F(ExecutionTest, SeesAnotherModel) {
  Execute();
  EXPECT_EQ(StatusOf([&] { ExecuteModel(model_ + 1, in_, out_); }), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { ExecuteModel(model_ + 1, in_, out_); }),
            Join("no model is loaded under the id ", model_ + 1));
  EXPECT_EQ(StatusOf([&] { Execute(); }), VORN_SUCCESS);
}

TEST_F(ExecutionTest, NeedsAContextFirst) {
  Change()->devices.DestroyContext(context);
  EXPECT_EQ(ReasonOf(VORN_ERROR_NOT_INITIALIZED, [&] { ExecuteModel(model_, nullptr, out_); }),
            "no context is current on this thread; create one on it");
}

TEST_F(ExecutionTest, RemembersNothingOfARefusal) {
  void* freed = Allocate(16);
  vorn_mdl_dataset* gone = NewDataset({{freed, 16, 16}});
  Execute();
  Free(freed);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { ExecuteModel(model_, in_, gone); }),
              "the block of output 0 was freed; register a live one");
    EXPECT_EQ(StatusOf([&] { ExecuteModel(model_, nullptr, out_); }), VORN_ERROR_INVALID_ARGUMENT);
  }
  y_.assign(4, 0);
  Execute();
  EXPECT_EQ(y_, (Floats{-1, -2, -3, -4}));
}

}  // namespace
}  // namespace vorn::host
