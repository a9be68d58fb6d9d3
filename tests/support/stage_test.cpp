// Tests support/stage.cpp, as far as it goes without the command.
#include "support/stage.h"

#include <gtest/gtest.h>

namespace support {
namespace {

TEST(Normalise, TakesOutTheFolderStampsAndTimesAndNothingElse) {
  const Stage stage;
  const std::string folder = stage.Folder().string();
  EXPECT_EQ(stage.Normalise(folder + "/a " + folder), "$DIR/a $DIR");
  EXPECT_EQ(stage.Normalise("0/a.0.1699999999123456.float"), "0/a.0.T.float");
  EXPECT_EQ(stage.Normalise("0/a.b.1.1699999999123456.bin\n"), "0/a.b.1.T.bin\n");
  EXPECT_EQ(stage.Normalise("a.169999999912345.bin"), "a.169999999912345.bin");
  EXPECT_EQ(stage.Normalise("a.1699999999123456.txt"), "a.1699999999123456.txt");
  EXPECT_EQ(stage.Normalise("[INFO]  Model Load Time:           12.34 ms\n"),
            "[INFO]  Model Load Time:           T ms\n");
  EXPECT_EQ(stage.Normalise("Model Load Time: -493.69 ms"), "Model Load Time: T ms");
  EXPECT_EQ(stage.Normalise("x Time: 1.234 ms, Time: -.00 ms, Time: nan ms"),
            "x Time: 1.234 ms, Time: -.00 ms, Time: nan ms");
  EXPECT_EQ(stage.Normalise("x Time:"), "x Time:");
}

}  // namespace
}  // namespace support
