#include "host/plan/result_fit.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

/// Fits bytes 1, 2, 3 .. of that shape into a place of `largest`, which is filled before.
std::vector<int> Fit(const Shape& shape, const Shape& largest, size_t placeBytes) {
  std::vector<std::byte> bytes;
  for (int i = 1; i <= 12; ++i) bytes.push_back(std::byte(i));
  std::vector<std::byte> place(placeBytes, std::byte{0xee});
  FitResult("y", {.data = bytes.data(), .shape = shape}, largest, 1, place.data());
  std::vector<int> fitted;
  for (const std::byte byte : place) fitted.push_back(std::to_integer<int>(byte));
  return fitted;
}

/// The same, and what the log says of it.
std::string LogOfFit(const Shape& shape, const Shape& largest, size_t placeBytes) {
  setenv("VORN_LOG", "error", 1);
  testing::internal::CaptureStderr();
  Fit(shape, largest, placeBytes);
  unsetenv("VORN_LOG");
  return testing::internal::GetCapturedStderr();
}

TEST(FitResult, PutsZerosBehindWhatIsThere) {
  EXPECT_EQ(Fit({2, 1}, {2, 2}, 4), (std::vector<int>{1, 0, 2, 0}));
  EXPECT_EQ(LogOfFit({2, 1}, {2, 2}, 4), "");
}

TEST(FitResult, TellsWhatItCutsOff) {
  EXPECT_EQ(Fit({2, 3}, {2, 2}, 4), (std::vector<int>{1, 2, 4, 5}));
  EXPECT_EQ(LogOfFit({2, 3}, {2, 2}, 4),
            "vorn: vorn_mdl_execute: output 'y' has the shape [2, 3]; what is beyond [2, 2] is cut "
            "off\n");
}

TEST(FitResult, RefusesAnotherCountOfDimensions) {
  EXPECT_EQ(ReasonOf(VORN_ERROR_EXECUTION,
                     [] {
                       Fit({4}, {2, 2}, 4);
                     }),
            "output 'y' has the shape [4]; 'outputDims' gives it 2 dimensions");
}

}  // namespace
}  // namespace vorn::host
