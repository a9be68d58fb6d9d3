// What was written, as protoc reads it by messages of our own: perfetto.proto.
#include "kit/convert/perfetto.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"
#include "support/command.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;
using testing::Not;

std::string Decoded(const std::string& bytes) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "trace", bytes);
  support::Command command;
  command.program = "/bin/sh";
  command.arguments = {"-c",
                       "exec \"$0\" --proto_path=\"$1\" --decode=Trace perfetto.proto < trace",
                       VORN_PROTOC, VORN_PROTO_FOLDER};
  command.directory = folder.Path();
  const support::Outcome decoded = RunCommand(command);
  EXPECT_EQ(decoded.status, 0) << decoded.Describe();
  // Blanks at the start of lines say nothing that the braces do not.
  std::string text;
  for (const std::string& line : support::SplitLines(decoded.out)) {
    text += line.substr(std::min(line.find_first_not_of(' '), line.size())) + "\n";
  }
  return text;
}

std::string Converted(const std::vector<TraceBytes>& traces) {
  std::vector<NamedTrace> named;
  for (const TraceBytes& trace : traces)
    named.push_back({.name = "", .file = ParseTrace(trace.Text())});
  return ToPerfetto(PlaceOnTimeline(std::move(named)));
}

TEST(ToPerfetto, IsReadByItsPublicFields) {
  TraceBytes bytes({"vorn_init", "vorn_rt_malloc"});
  bytes.Call({.operation = 1,
              .beganNs = 1100,
              .endedNs = 1250,
              .arguments = {1, 5, 2},
              .results = {0, 171}});
  bytes.Ended(1400);
  EXPECT_EQ(Decoded(Converted({bytes})), R"(packet {
trusted_packet_sequence_id: 1
interned_data {
event_names {
iid: 1
name: "vorn_init"
}
event_names {
iid: 2
name: "vorn_rt_malloc"
}
}
sequence_flags: 1
}
packet {
timestamp: 0
trusted_packet_sequence_id: 1
sequence_flags: 2
track_descriptor {
uuid: 1099511627776
process {
pid: 42
process_name: "program 42 on board"
}
}
}
packet {
timestamp: 0
trusted_packet_sequence_id: 1
sequence_flags: 2
track_descriptor {
uuid: 1099511627784
thread {
pid: 42
tid: 7
thread_name: "thread 7"
}
parent_uuid: 1099511627776
}
}
packet {
timestamp: 0
trusted_packet_sequence_id: 1
sequence_flags: 2
track_descriptor {
uuid: 1168231104512
name: "device memory, bytes"
parent_uuid: 1099511627776
counter {
}
}
}
packet {
timestamp: 100
trusted_packet_sequence_id: 1
track_event {
debug_annotations {
uint_value: 1
name: "call"
}
debug_annotations {
uint_value: 1
name: "argument 1"
}
debug_annotations {
uint_value: 5
name: "argument 2"
}
debug_annotations {
uint_value: 2
name: "argument 3"
}
type: TYPE_SLICE_BEGIN
name_iid: 2
track_uuid: 1099511627784
}
sequence_flags: 2
}
packet {
timestamp: 250
trusted_packet_sequence_id: 1
track_event {
debug_annotations {
uint_value: 0
name: "answer"
}
debug_annotations {
uint_value: 171
name: "result 1"
}
type: TYPE_SLICE_END
track_uuid: 1099511627784
}
sequence_flags: 2
}
packet {
timestamp: 250
trusted_packet_sequence_id: 1
track_event {
type: TYPE_COUNTER
track_uuid: 1168231104512
counter_value: 5
}
sequence_flags: 2
}
packet {
timestamp: 0
trusted_packet_sequence_id: 1
track_event {
type: TYPE_INSTANT
track_uuid: 1099511627776
name: "layer loaded"
}
sequence_flags: 2
}
packet {
timestamp: 400
trusted_packet_sequence_id: 1
track_event {
type: TYPE_INSTANT
track_uuid: 1099511627776
name: "layer taken down"
}
sequence_flags: 2
}
)");
}

TEST(ToPerfetto, LeavesOpenWhatDidNotReturnAndMarksWhatIsMissing) {
  TraceBytes bytes({"vorn_init"}, 1);
  bytes.Call({.operation = 0, .beganNs = 1100, .endedNs = 0});
  bytes.Put64(48, 4);
  const std::string text = Decoded(Converted({bytes}));
  EXPECT_THAT(text, HasSubstr("type: TYPE_SLICE_BEGIN\n"));
  EXPECT_THAT(text, HasSubstr("string_value: \"no\"\nname: \"returned\"\n"));
  EXPECT_THAT(text, Not(HasSubstr("TYPE_SLICE_END")));
  EXPECT_THAT(text, HasSubstr("name: \"3 later calls dropped: there was no room\"\n"));
  EXPECT_THAT(text, HasSubstr("name: \"the process was ended, or runs still\"\n"));
}

TEST(ToPerfetto, TellsMachinesApartWhoseNumbersAreTheSame) {
  TraceBytes one({"vorn_init"});
  one.Call({.operation = 0, .beganNs = 1100, .endedNs = 1200});
  TraceBytes other = one;
  other.Put(88, "other");
  other.Put64(64, 5300);
  const std::string text = Decoded(Converted({one, other}));
  EXPECT_THAT(text, HasSubstr("pid: 42\nprocess_name: \"program 42 on board\"\n"));
  EXPECT_THAT(text, HasSubstr("pid: 10000042\nprocess_name: \"program 42 on other\"\n"));
  EXPECT_THAT(text, HasSubstr("pid: 10000042\ntid: 10000007\nthread_name: \"thread 7\"\n"));
  EXPECT_THAT(text, HasSubstr("timestamp: 400\ntrusted_packet_sequence_id: 2\n"));
}

TEST(ToPerfetto, BearsNamesOfAnyBytes) {
  TraceBytes bytes({"caf\xe9"});
  bytes.Put(88, "\xff\n");
  EXPECT_THAT(Decoded(Converted({bytes})), HasSubstr("name: \"caf\\\\xE9\"\n"));
  EXPECT_EQ(Decoded(Converted({})), "");
}

}  // namespace
}  // namespace vorn::kit
