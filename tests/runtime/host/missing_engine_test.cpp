// libvorn.so in a folder without the library that executes models; the build puts it there.
#include <gtest/gtest.h>

#include <cstdlib>

#include "runtime/host/host_fixture.h"

namespace {

TEST(HostProcess, SaysWhichLibraryItMisses) {
  const ConfigFile config("{}");
  setenv("VORN_LOG", "1", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(vorn_init(config.path()), VORN_ERROR_INTERNAL);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_EQ(said.rfind("vorn: vorn_init: libonnxruntime", 0), 0u) << said;
  EXPECT_NE(said.find("put it beside libvorn.so"), std::string::npos) << said;
  EXPECT_EQ(vorn_finalize(), VORN_ERROR_NOT_INITIALIZED);
}

}  // namespace
