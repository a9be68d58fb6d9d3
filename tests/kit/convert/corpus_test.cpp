// Traces of earlier builds, each beside what it tells as a table: readable for ever. A later
// version of the format adds its own, and changes none.
//
//     first-build   all calls of three pictures, by the first layer, without settings in the header
//     whole         the same, by version 1 with settings
//     some          --only 'vorn_mdl_*' --calls 20: calls left out, and calls without room
//     killed        by SIGKILL within its first call
#include <gtest/gtest.h>

#include <filesystem>

#include "kit/convert/trace_csv.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

class OldTrace : public testing::TestWithParam<const char*> {};

TEST_P(OldTrace, TellsWhatItToldWhenItWasMade) {
  const std::filesystem::path path = std::filesystem::path(VORN_CORPUS_FOLDER) / GetParam();
  const std::string name = std::string(GetParam()) + ".vtrace";
  TraceFile file = ParseTrace(support::ReadFile(path.string() + ".vtrace"));
  const auto placed = PlaceOnTimeline({{.name = name, .file = std::move(file)}});
  EXPECT_EQ(ToCsv(placed), support::ReadFile(path.string() + ".csv"));
}

INSTANTIATE_TEST_SUITE_P(Corpus, OldTrace,
                         testing::Values("first-build", "whole", "some", "killed"),
                         [](const auto& one) {
                           std::string name = one.param;
                           for (char& c : name) c = c == '-' ? '_' : c;
                           return name;
                         });

TEST(OldTraces, KeepTheirHeaders) {
  const auto read = [](const char* name) {
    return ParseTrace(support::ReadFile(std::string(VORN_CORPUS_FOLDER "/") + name + ".vtrace"));
  };
  const TraceFile first = read("first-build");
  EXPECT_EQ(first.program, "/tmp/demo/bin/vorn-run");
  EXPECT_EQ(first.runtime, "/tmp/demo/bin/libvorn.so");
  EXPECT_EQ(first.settings, "");
  EXPECT_EQ(first.calls.size(), 261U);
  EXPECT_TRUE(first.endedNs);
  const TraceFile some = read("some");
  EXPECT_EQ(some.calls.size(), 20U);
  EXPECT_GT(some.dropped, 0U);
  EXPECT_EQ(some.passed + some.dropped + some.calls.size(), 261U);
  EXPECT_TRUE(some.settings.ends_with("calls=20\nonly=vorn_mdl_*\n")) << some.settings;
  EXPECT_FALSE(read("killed").endedNs);
}

}  // namespace
}  // namespace vorn::kit
