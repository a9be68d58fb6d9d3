// `vorn convert` as a program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

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

TEST_F(Convert, RefusesANameThatTellsOfAnotherFormat) {
  const auto said = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"-q", Path("one.vtrace"), "-o"});
    const Outcome ended = Run(words);
    EXPECT_EQ(ended.status, ended.err.empty() ? 0 : 2);
    EXPECT_EQ(std::filesystem::exists(words[3]), ended.err.empty());
    std::filesystem::remove(words[3]);
    return ended.err;
  };
  const std::string binary =
      ", and what is written is a binary trace of Perfetto; name it .pftrace, or .csv for a "
      "table\n";
  EXPECT_EQ(said({Path("own.json")}),
            "vorn convert: '" + Path("own.json") + "' ends with .json" + binary);
  EXPECT_EQ(said({Path("a.csv"), "--to", "perfetto"}),
            "vorn convert: '" + Path("a.csv") + "' ends with .csv" + binary);
  EXPECT_EQ(said({Path("a.pftrace"), "--to", "csv"}),
            "vorn convert: '" + Path("a.pftrace") +
                "' ends with .pftrace, and what is written is a table; name it .csv\n");
  EXPECT_EQ(said({Path("a.txt"), "--to", "csv"}), "");
  EXPECT_EQ(said({Path("a.perfetto-trace")}), "");
  EXPECT_EQ(said({Path("a.anything")}), "");
}

TEST_F(Convert, MakesArraysOfARun) {
  support::WriteFile(Path("run/dumps/0/prob.0.17.bin"), support::Bytes<float>({1, 2}));
  const std::string done =
      R"({"schema":1,"index":0,"status":"done","inputs":[],"outputs":[{"index":0,"name":"prob",)"
      R"("path":"dumps/0/prob.0.17.bin","sizeBytes":8,"xxh3_128":"0"}]})"
      "\n";
  support::WriteFile(Path("run/samples.jsonl"), done);
  const Outcome whole = Run({Path("run"), "--to", "npy", "-o", Path("arrays")});
  EXPECT_EQ(whole.status, 0) << whole.Describe();
  EXPECT_EQ(whole.out, "");
  EXPECT_EQ(whole.err, "vorn convert: 1 array of 1 sample\n");
  EXPECT_THAT(support::ReadFile(Path("arrays/0/prob.0.17.npy")), HasSubstr("'shape': (2,)"));
  const std::string missing =
      R"({"schema":1,"index":1,"status":"missing","inputs":[],"outputs":[]})"
      "\n";
  support::WriteFile(Path("run/samples.jsonl"), done + missing);
  const Outcome partial = Run({"--quiet", Path("run"), "--to", "npy"});
  EXPECT_EQ(partial.status, 8);
  EXPECT_EQ(partial.err, "");
  EXPECT_THAT(support::ReadFile(Path("run/dumps/0/prob.0.17.npy")), HasSubstr("'shape': (2,)"));
  support::WriteFile(Path("run/samples.jsonl"), "");
  EXPECT_EQ(Run({Path("run"), "--to", "npy"}).status, 9);
  EXPECT_EQ(Run({Path("run"), Path("run"), "--to", "npy"}).status, 2);
  EXPECT_EQ(Run({Path("one.vtrace"), "--to", "npy"}).status, 3);
}

// A run may come from elsewhere, and its links lead to files that nobody named.
TEST_F(Convert, WritesArraysThroughNoLinkAndWaitsForNoPipe) {
  support::WriteFile(Path("run/dumps/0/prob.0.17.bin"), support::Bytes<float>({1, 2}));
  support::WriteFile(Path("run/samples.jsonl"),
                     R"({"schema":1,"index":0,"status":"done","inputs":[],"outputs":[{"index":0,)"
                     R"("name":"prob","path":"dumps/0/prob.0.17.bin","sizeBytes":8,)"
                     R"("xxh3_128":"0"}]})"
                     "\n");
  support::WriteFile(Path("other"), "mine");
  const std::string array = Path("run/dumps/0/prob.0.17.npy");
  std::filesystem::create_symlink(Path("other"), array);
  EXPECT_EQ(Run({Path("run"), "--to", "npy"}).status, 0);
  EXPECT_EQ(support::ReadFile(Path("other")), "mine");
  EXPECT_FALSE(std::filesystem::is_symlink(array));
  EXPECT_THAT(support::ReadFile(array), HasSubstr("'shape': (2,)"));
  std::filesystem::remove(array);
  ASSERT_EQ(mkfifo(array.c_str(), 0600), 0);
  const Outcome piped = Run({Path("run"), "--to", "npy"});
  EXPECT_EQ(piped.status, 7);
  EXPECT_EQ(piped.err,
            "vorn convert: cannot write '" + array + "': a pipe is in its place; remove it\n");
}

TEST_F(Convert, NeverReplacesATraceThatItReads) {
  std::filesystem::create_symlink(Path("one.vtrace"), Path("link"));
  const std::string before = support::ReadFile(Path("one.vtrace"));
  for (const char* output : {"one.vtrace", "link"}) {
    const Outcome ended = Run({"-q", Path("one.vtrace"), "-o", Path(output)});
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.err, "vorn convert: '" + Path(output) +
                             "' is a trace that is read; name another file with -o\n");
  }
  EXPECT_EQ(support::ReadFile(Path("one.vtrace")), before);
}

// The operand is the folder then, and what is read the file in it.
TEST_F(Convert, NeverReplacesTheTraceOfARunThatItReads) {
  const std::string before = support::ReadFile(Path("run/trace.vtrace"));
  const Outcome ended =
      Run({"-q", Path("one.vtrace"), Path("run"), "-o", Path("run/trace.vtrace")});
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_EQ(ended.err, "vorn convert: '" + Path("run/trace.vtrace") +
                           "' is a trace that is read; name another file with -o\n");
  EXPECT_EQ(support::ReadFile(Path("run/trace.vtrace")), before);
}

TEST_F(Convert, EndsWithEightForARunThatGoesOn) {
  support::WriteFile(Path("run/samples.jsonl"), "");
  support::WriteFile(
      Path("run/run.json"),
      R"({"schema":1,"state":"running","command":[],"version":"","model":{"path":"","sizeBytes":0,)"
      R"("xxh3_128":"0"},"mapped":[],"machine":{"host":"","kernel":"","processor":""},)"
      R"("startRealtimeNs":0,"counts":{"inferences":5,"done":0,"failed":0,"aside":0,"missing":0},)"
      R"("phases":{},"warnings":[],"standardError":""})");
  const Outcome ended = Run({Path("run"), "--to", "npy"});
  EXPECT_EQ(ended.status, 8) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("has not ended"));
  EXPECT_THAT(ended.err, HasSubstr("and has 0 samples of 5\n"));
}

TEST_F(Convert, SaysWhyARunHasNoTrace) {
  const auto fault = [&](const std::string& name) {
    const Outcome ended = Run({Path(name), "-o", Path("out")});
    EXPECT_EQ(ended.status, 3);
    return ended.err;
  };
  support::WriteFile(Path("chunked/run.json"), "{}");
  support::WriteFile(Path("turns/A/run.json"), "{}");
  support::WriteFile(Path("turns/A/samples.jsonl"), "");
  support::WriteFile(Path("other/file"), "");
  EXPECT_EQ(fault("chunked"),
            "vorn convert: '" + Path("chunked") +
                "' holds no trace.vtrace: a run in chunks leaves no trace unless one of them "
                "failed, none does with --no-trace, and none before it has ended\n");
  EXPECT_THAT(fault("turns"), HasSubstr("it holds two runs that took turns, A and B"));
  EXPECT_EQ(Run({Path("turns"), "--to", "npy"}).err,
            "vorn convert: '" + Path("turns") + "' holds two runs that took turns; name '" +
                Path("turns/A") + "' or '" + Path("turns/B") + "'\n");
  EXPECT_THAT(fault("other"), HasSubstr("holds no trace.vtrace: it is no run directory\n"));
}

TEST_F(Convert, TellsOfATraceThatWasCut) {
  const std::string whole = support::ReadFile(Path("one.vtrace"));
  support::WriteFile(Path("cut"), whole.substr(0, whole.size() - 1));
  const Outcome ended = Run({Path("cut"), "--to", "csv"});
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.err, StartsWith("vorn convert: '" + Path("cut") +
                                    "' lacks its last 1 call: the file was cut\n"));
}

// Also of what is more than the stream holds back, whose failure a last flush does not see.
TEST_F(Convert, FailsWhereStandardOutputDoes) {
  TraceBytes bytes({"vorn_init"}, 1);
  for (uint64_t i = 0; i < 1000; ++i) {
    bytes.Call({.operation = 0, .beganNs = 1100 + i, .endedNs = 1100 + i});
  }
  support::WriteFile(Path("long.vtrace"), bytes.Text());
  for (const char* where : {">/dev/full", ">&-"}) {
    support::Command command;
    command.program = "/bin/sh";
    command.arguments = {"-c", "exec \"$0\" convert -q --to csv \"$1\" " + std::string(where),
                         VORN_COMMAND, Path("long.vtrace")};
    const Outcome ended = RunCommand(command);
    EXPECT_EQ(ended.status, 7) << where;
    EXPECT_THAT(ended.err, StartsWith("vorn convert: cannot write to standard output: "));
  }
}

TEST_F(Convert, RefusesWhatItCannotDo) {
  EXPECT_EQ(Run({}).status, 2);
  EXPECT_EQ(Run({Path("one.vtrace"), "--to", "json"}).err,
            "vorn convert: --to takes perfetto, csv or npy, and got 'json'\n");
  const Outcome none = Run({Path("one.vtrace"), Path("none"), "-o", Path("out")});
  EXPECT_EQ(none.status, 3);
  EXPECT_THAT(none.err, HasSubstr("none': this is no trace: it has 8 bytes"));
  EXPECT_EQ(support::ReadTree(folder_.Path()).count("out"), 0U);
  const Outcome full = Run({"-q", Path("one.vtrace"), "-o", "/no/folder/out"});
  EXPECT_EQ(full.status, 7);
  EXPECT_THAT(full.err, HasSubstr("/no/folder/out"));
}

}  // namespace
