// libvorn.so in folders without the library that executes models, or with something else in its
// place; the build puts them there (CMakeLists.txt).
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "runtime/host/host_fixture.h"

namespace {

using testing::Eq;
using testing::MatchesRegex;

constexpr const char* kEngine = VORN_ENGINE_SONAME;

TEST(HostProcess, SaysWhichLibraryItMisses) {
  const ConfigFile config("{}");
  setenv("VORN_LOG", "1", 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(vorn_init(config.path()), VORN_ERROR_INTERNAL);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            std::string("vorn: vorn_init: ") + kEngine + " cannot be loaded (" + kEngine +
                ": cannot open shared object file: No such file or directory); put it beside "
                "libvorn.so or into LD_LIBRARY_PATH\n");
  EXPECT_EQ(vorn_finalize(), VORN_ERROR_NOT_INITIALIZED);
}

TEST(HostProcess, LooksAtTheConfigurationFirst) {
  EXPECT_EQ(vorn_init("/nowhere/vorn.json"), VORN_ERROR_CONFIG);
}

/// What vorn_init answers, and its line on standard error.
int StatusOfInit() {
  const ConfigFile config("{}");
  setenv("VORN_LOG", "1", 1);
  return vorn_init(config.path());
}

/// Libraries are looked for as a process begins, so that each of these takes one of its own.
class HostEngineSearch : public testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  static std::string Folder(const std::string& name) { return VORN_FOLDERS "/" + name; }
  static void Search(const std::string& folders) { setenv("LD_LIBRARY_PATH", folders.c_str(), 1); }
};

TEST_F(HostEngineSearch, RefusesALibraryThatIsTooOld) {
  Search(Folder("old"));
  EXPECT_EXIT(std::_Exit(StatusOfInit()), testing::ExitedWithCode(VORN_ERROR_INTERNAL),
              MatchesRegex(std::string("vorn: vorn_init: ") + kEngine +
                           " is version 1.2.3; it has to be 1.[0-9]+ or later\n"));
}

TEST_F(HostEngineSearch, RefusesAnotherLibraryOfThatName) {
  Search(Folder("foreign"));
  EXPECT_EXIT(std::_Exit(StatusOfInit()), testing::ExitedWithCode(VORN_ERROR_INTERNAL),
              MatchesRegex(std::string("vorn: vorn_init: ") + kEngine +
                           " is not the library that it should be; replace it\n"));
}

TEST_F(HostEngineSearch, TellsWhyTheFirstOneCannotBeLoaded) {
  Search(Folder("broken") + ":" + Folder("lonely"));
  EXPECT_EXIT(
      std::_Exit(StatusOfInit()), testing::ExitedWithCode(VORN_ERROR_INTERNAL),
      Eq(std::string("vorn: vorn_init: ") + kEngine + " cannot be loaded (" + Folder("broken/") +
         kEngine + ": invalid ELF header); put it beside libvorn.so or into LD_LIBRARY_PATH\n"));
}

TEST_F(HostEngineSearch, TakesTheOneBesideItselfWhereTheFirstCannotBeLoaded) {
  Search(Folder("broken") + ":" + Folder("beside"));
  EXPECT_EXIT(std::_Exit(StatusOfInit()), testing::ExitedWithCode(VORN_SUCCESS), "");
}

}  // namespace
