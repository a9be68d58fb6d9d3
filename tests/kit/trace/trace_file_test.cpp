#include "kit/trace/trace_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "kit/common/fault.h"
#include "kit/trace/trace_bytes.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

TraceBytes Small() {
  TraceBytes bytes({"first", "second"});
  bytes.Call({.operation = 1,
              .beganNs = 1100,
              .endedNs = 1200,
              .arguments = {3, 4, 5, 6},
              .results = {0, 9}});
  bytes.Call({.operation = 0, .beganNs = 1300, .endedNs = 0});
  return bytes;
}

TEST(ParseTrace, CountsWhatACutFileLacks) {
  const std::string text = Small().Text();
  EXPECT_EQ(ParseTrace(text).cut, 0U);
  const TraceFile file = ParseTrace(text.substr(0, text.size() - 1));
  EXPECT_EQ(file.cut, 1U);
  EXPECT_EQ(file.calls.size(), 1U);
}

TEST(ParseTrace, ReadsHeaderAndCalls) {
  const TraceFile file = ParseTrace(Small().Ended(1400).Text());
  EXPECT_EQ(file.pid, 42U);
  EXPECT_EQ(file.monotonicNs, 1000U);
  EXPECT_EQ(file.realtimeNs, 5000U);
  EXPECT_EQ(file.clockNs, 20U);
  EXPECT_EQ(file.endedNs, 1400U);
  EXPECT_EQ(file.host, "board");
  EXPECT_EQ(file.program, "/bin/program");
  EXPECT_EQ(file.runtime, "/lib/libvorn.so");
  EXPECT_EQ(file.other, "");
  EXPECT_EQ(file.dropped, 0U);
  EXPECT_THAT(file.operations, ElementsAre("first", "second"));
  ASSERT_EQ(file.calls.size(), 2U);
  EXPECT_EQ(file.calls[0].number, 1U);
  EXPECT_EQ(file.calls[0].operation, 1U);
  EXPECT_EQ(file.calls[0].thread, 7U);
  EXPECT_EQ(file.calls[0].beganNs, 1100U);
  EXPECT_EQ(file.calls[0].endedNs, 1200U);
  EXPECT_THAT(file.calls[0].arguments, ElementsAre(3, 4, 5, 6));
  EXPECT_THAT(file.calls[0].results, ElementsAre(0, 9));
  EXPECT_EQ(file.calls[1].endedNs, std::nullopt);
}

TEST(ParseTrace, ReadsTheFileOfAProcessThatDidNotEndInOrder) {
  EXPECT_EQ(ParseTrace(Small().Text()).endedNs, std::nullopt);
}

TEST(ParseTrace, ReadsATraceWithoutACall) {
  EXPECT_TRUE(ParseTrace(TraceBytes({"first"}).Text()).calls.empty());
}

TEST(ParseTrace, CountsWhatHadNoRoom) {
  TraceBytes bytes({"first"}, 1);
  bytes.Call({.operation = 0, .beganNs = 1, .endedNs = 2});
  bytes.Put64(48, 5);
  const TraceFile file = ParseTrace(bytes.Text());
  EXPECT_EQ(file.calls.size(), 1U);
  EXPECT_EQ(file.dropped, 4U);
}

TEST(ParseTrace, ReadsACutFileUpToTheCut) {
  const std::string whole = Small().Text();
  EXPECT_EQ(ParseTrace(whole.substr(0, whole.size() - 1)).calls.size(), 1U);
  EXPECT_EQ(ParseTrace(whole.substr(0, 8192)).calls.size(), 0U);
}

TEST(ParseTrace, LeavesOutRecordsThatAreNotWhole) {
  TraceBytes bytes = Small();
  bytes.Put64(8192, 0);  // the first call's number was not written yet
  EXPECT_EQ(ParseTrace(bytes.Text()).calls.size(), 1U);
  bytes = Small();
  bytes.Put16(8192 + 20, 2);  // an operation that has no name
  EXPECT_EQ(ParseTrace(bytes.Text()).calls.size(), 1U);
  bytes = Small();
  bytes.Put16(8192 + 22, 5);  // more words than there are
  EXPECT_EQ(ParseTrace(bytes.Text()).calls.size(), 1U);
  bytes = Small();
  bytes.Put64(8192 + 64, 0);
  const TraceFile file = ParseTrace(bytes.Text());
  ASSERT_EQ(file.calls.size(), 2U);
  EXPECT_EQ(file.calls[0].endedNs, std::nullopt);
}

std::string FaultOf(const std::string& bytes) {
  try {
    (void)ParseTrace(bytes);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "no fault";
}

TEST(ParseTrace, RefusesWhatIsNoTrace) {
  EXPECT_EQ(FaultOf(""), "this is no trace: it has 0 bytes, and the header alone takes 4096");
  EXPECT_EQ(FaultOf(std::string(8192, 'x')), "this is no trace: it does not begin as one does");
  TraceBytes bytes = Small();
  bytes.Put32(8, 2);
  EXPECT_EQ(FaultOf(bytes.Text()),
            "this is no trace: it is of version 2, and this program knows 1");
  bytes = Small();
  bytes.Put32(24, 127);
  EXPECT_EQ(FaultOf(bytes.Text()), "this is no trace: its slots have 127 bytes instead of 128");
  for (const auto& [at, value] : {std::pair{12, 8193U}, {16, 0U}, {20, 70000U}, {20, 65U}}) {
    bytes = Small();
    bytes.Put32(static_cast<size_t>(at), value);
    EXPECT_EQ(FaultOf(bytes.Text().substr(0, 8192)),
              "this is no trace: the names of its operations are not all there");
  }
  bytes = Small();
  bytes.Put64(32, UINT64_MAX);
  EXPECT_EQ(FaultOf(bytes.Text()), "this is no trace: it ends before its first call");
}

TEST(ParseTrace, BearsAnyByteChanged) {
  std::mt19937 random(1);
  const std::string whole = Small().Text();
  for (int round = 0; round < 20000; ++round) {
    std::string bytes = whole;
    for (int i = 0; i < 3; ++i) {
      const size_t at = random() % 3 == 0 ? random() % 96 : random() % bytes.size();
      bytes[at] = static_cast<char>(random());
    }
    bytes.resize(random() % 2 == 0 ? bytes.size() : random() % bytes.size());
    try {
      const TraceFile file = ParseTrace(bytes);
      for (const TracedCall& call : file.calls) EXPECT_LT(call.operation, file.operations.size());
    } catch (const Fault&) {
    }
  }
}

}  // namespace
}  // namespace vorn::kit
