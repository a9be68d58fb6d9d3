// `vorn convert` as a program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"
#include "support/command.h"
#include "support/files.h"

namespace {

using support::Outcome;
using testing::HasSubstr;
using testing::StartsWith;

class Convert : public testing::Test {
 protected:
  Convert() {
    TraceBytes bytes({"vorn_init"}, 1);
    bytes.Call({.operation = 0, .beganNs = 1100, .endedNs = 1200});
    bytes.Put64(48, 3);
    support::WriteFile(Path("one.vtrace"), bytes.Text());
    support::WriteFile(Path("run/trace.vtrace"), bytes.Text());
    support::WriteFile(Path("none"), "no trace");
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), "convert");
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = std::move(words);
    return RunCommand(command);
  }

  support::TempDir folder_;
};

TEST_F(Convert, WritesBothFormats) {
  const Outcome csv = Run({Path("one.vtrace"), Path("run"), "--to", "csv"});
  EXPECT_EQ(csv.status, 0);
  EXPECT_THAT(csv.out, StartsWith("trace,host,"));
  EXPECT_THAT(csv.out, HasSubstr(Path("run") + ",board,42,7,1,vorn_init,100,100,0,,\n"));
  EXPECT_EQ(csv.err, "vorn convert: '" + Path("one.vtrace") +
                         "' lacks its last 2 calls: there was no room\nvorn convert: '" +
                         Path("run") + "' lacks its last 2 calls: there was no room\n");
  EXPECT_EQ(Run({"-q", Path("one.vtrace"), "-o", Path("one.csv")}).err, "");
  EXPECT_THAT(support::ReadFile(Path("one.csv")), StartsWith("trace,host,"));
  EXPECT_EQ(Run({"-q", Path("one.vtrace"), "-o", Path("one.pftrace")}).out, "");
  EXPECT_EQ(support::ReadFile(Path("one.pftrace")), Run({Path("one.vtrace")}).out);
  EXPECT_THAT(support::ReadFile(Path("one.pftrace")), StartsWith("\n"));
}

TEST_F(Convert, RefusesWhatItCannotDo) {
  EXPECT_EQ(Run({}).status, 2);
  EXPECT_EQ(Run({Path("one.vtrace"), "--to", "json"}).err,
            "vorn convert: --to takes perfetto or csv, and got 'json'\n");
  const Outcome none = Run({Path("one.vtrace"), Path("none"), "-o", Path("out")});
  EXPECT_EQ(none.status, 3);
  EXPECT_THAT(none.err, HasSubstr("none': this is no trace: it has 8 bytes"));
  EXPECT_EQ(support::ReadTree(folder_.Path()).count("out"), 0U);
  const Outcome full = Run({"-q", Path("one.vtrace"), "-o", "/no/folder/out"});
  EXPECT_EQ(full.status, 7);
  EXPECT_THAT(full.err, HasSubstr("/no/folder/out"));
}

}  // namespace
