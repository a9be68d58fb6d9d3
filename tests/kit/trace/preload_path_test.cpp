#include "kit/trace/preload_path.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/files.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

TEST(PreloadPath, IsTheLibrarysOwnWhereItCanBe) {
  EXPECT_EQ(PreloadPath("/opt/vorn/libvorn-trace.so").Path(), "/opt/vorn/libvorn-trace.so");
}

TEST(PreloadPath, LeavesTheLibraryWhereItIs) {
  const support::TempDir folder;
  const fs::path library = folder.Path() / "libvorn-trace.so";
  support::WriteFile(library, "bytes");
  { const PreloadPath path(library.string()); }
  EXPECT_EQ(support::ReadFile(library), "bytes");
}

TEST(PreloadPath, IsALinkThatGoesWhereTheOwnHoldsABlankOrAColon) {
  const support::TempDir folder;
  for (const char* name : {"a board", "a:board", "a\tboard", "a\nboard"}) {
    const fs::path library = folder.Path() / name / "libvorn-trace.so";
    fs::create_directory(library.parent_path());
    support::WriteFile(library, "bytes");
    fs::path link;
    {
      const PreloadPath path(library.string());
      link = path.Path();
      EXPECT_EQ(path.Path().find_first_of(" \t\n:"), std::string::npos);
      EXPECT_EQ(link.filename(), "libvorn-trace.so");
      EXPECT_TRUE(fs::equivalent(link, library));
    }
    EXPECT_FALSE(fs::exists(link.parent_path())) << name;
  }
}

}  // namespace
}  // namespace vorn::kit
