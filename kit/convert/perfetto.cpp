// A trace is a row of packets, each field 1 of the whole. Names are sent once a sequence, as
// numbers from then on; each process is a sequence. The numbers below are the public ones of its
// messages:
//
//     Trace            packet 1
//     TracePacket      timestamp 8, sequence 10, event 11, interned data 12, sequence flags 13,
//     track 60 TrackDescriptor  uuid 1, name 2, process 3, thread 4, parent 5, counter 8
//       process        pid 1, name 6            thread  pid 1, tid 2, name 5
//     TrackEvent       annotations 4, type 9, name by number 10, track 11, name 23,
//     counter 30
//       annotation     number 3, text 6, name 10
//     InternedData     event name 2: number 1, name 2
#include "kit/convert/perfetto.h"

#include <algorithm>
#include <set>

#include "kit/common/printable.h"
#include "kit/convert/protobuf_writer.h"
#include "kit/trace/trace_summary.h"

namespace vorn::kit {
namespace {

constexpr uint32_t kPacket = 1;
namespace packet {
constexpr uint32_t kTimestamp = 8, kSequence = 10, kEvent = 11, kInterned = 12, kFlags = 13,
                   kTrack = 60;
}
namespace track {
constexpr uint32_t kUuid = 1, kName = 2, kProcess = 3, kThread = 4, kParent = 5, kCounter = 8;
}
namespace process {
constexpr uint32_t kPid = 1, kName = 6;
}
namespace thread {
constexpr uint32_t kPid = 1, kTid = 2, kName = 5;
}
namespace event {
constexpr uint32_t kAnnotation = 4, kType = 9, kNameNumber = 10, kTrack = 11, kName = 23,
                   kCounterValue = 30;
constexpr uint64_t kBegin = 1, kEnd = 2, kInstant = 3, kCounter = 4;
}  // namespace event
namespace annotation {
constexpr uint32_t kNumber = 3, kText = 6, kName = 10;
}
namespace interned {
constexpr uint32_t kEventName = 2, kNumber = 1, kName = 2;
}

constexpr uint64_t kNewSequence = 1;
constexpr uint64_t kKnownSequence = 2;

// Of one trace; a thread's own is its number behind that.
constexpr uint64_t kTracksOfATrace = uint64_t{1} << 40;
constexpr uint64_t kMemoryTrack = uint64_t{1} << 36;

// A viewer knows processes by their number alone. Those of further machines get one that no system
// gives; the name holds the real one.
constexpr uint64_t kNumbersOfAMachine = 10000000;

ProtobufMessage Annotation(std::string_view name, uint64_t value) {
  return ProtobufMessage().Text(annotation::kName, name).Number(annotation::kNumber, value);
}

class PerfettoTrace {
 public:
  PerfettoTrace(const PlacedTrace& placed, uint64_t sequence, std::string& out)
      : placed_(placed), file_(placed.trace.file), sequence_(sequence), out_(out) {}

  void Write() {
    WriteNames();
    WriteTracks();
    for (const TracedCall& call : file_.calls) WriteCall(call);
    for (const MemoryMoment& moment : MemoryOverTime(file_)) {
      Event(moment.monotonicNs, ProtobufMessage()
                                    .Number(event::kType, event::kCounter)
                                    .Number(event::kTrack, Track(kMemoryTrack))
                                    .Number(event::kCounterValue, moment.bytes));
    }
    Mark(file_.monotonicNs, "layer loaded");
    const uint64_t end = placed_.EndNs();
    if (file_.dropped != 0) {
      Mark(end, std::to_string(file_.dropped) + " later calls dropped: there was no room");
    }
    Mark(end, file_.endedNs ? "layer taken down" : "the process was ended, or runs still");
  }

 private:
  [[nodiscard]] uint64_t Track(uint64_t own) const { return sequence_ * kTracksOfATrace + own; }
  [[nodiscard]] uint64_t Numbered(uint64_t number) const {
    return placed_.machine * kNumbersOfAMachine + number;
  }

  void Packet(ProtobufMessage packet, uint64_t flags) {
    packet.Number(packet::kSequence, sequence_).Number(packet::kFlags, flags);
    out_ += ProtobufMessage().Message(kPacket, packet).Bytes();
  }

  void Event(uint64_t monotonicNs, const ProtobufMessage& event) {
    Packet(ProtobufMessage()
               .Number(packet::kTimestamp, placed_.At(monotonicNs))
               .Message(packet::kEvent, event),
           kKnownSequence);
  }

  void WriteNames() {
    ProtobufMessage names;
    for (size_t i = 0; i < file_.operations.size(); ++i) {
      names.Message(interned::kEventName,
                    ProtobufMessage()
                        .Number(interned::kNumber, i + 1)
                        .Text(interned::kName, Printable(file_.operations[i])));
    }
    Packet(ProtobufMessage().Message(packet::kInterned, names), kNewSequence);
  }

  // Before what happens on it, so that a viewer knows it by then.
  void DescribeTrack(const ProtobufMessage& descriptor) {
    Packet(ProtobufMessage()
               .Number(packet::kTimestamp, placed_.At(file_.monotonicNs))
               .Message(packet::kTrack, descriptor),
           kKnownSequence);
  }

  void WriteTracks() {
    const std::string program = Printable(file_.program.substr(file_.program.rfind('/') + 1));
    const uint64_t pid = Numbered(file_.pid);
    DescribeTrack(ProtobufMessage()
                      .Number(track::kUuid, Track(0))
                      .Message(track::kProcess,
                               ProtobufMessage()
                                   .Number(process::kPid, pid)
                                   .Text(process::kName, program + " " + std::to_string(file_.pid) +
                                                             " on " + Printable(file_.host))));
    std::set<uint32_t> threads;
    for (const TracedCall& call : file_.calls) threads.insert(call.thread);
    for (const uint32_t number : threads) {
      DescribeTrack(ProtobufMessage()
                        .Number(track::kUuid, Track(number + 1))
                        .Number(track::kParent, Track(0))
                        .Message(track::kThread,
                                 ProtobufMessage()
                                     .Number(thread::kPid, pid)
                                     .Number(thread::kTid, Numbered(number))
                                     .Text(thread::kName, "thread " + std::to_string(number))));
    }
    DescribeTrack(ProtobufMessage()
                      .Number(track::kUuid, Track(kMemoryTrack))
                      .Number(track::kParent, Track(0))
                      .Text(track::kName, "device memory, bytes")
                      .Message(track::kCounter, ProtobufMessage()));
  }

  void WriteCall(const TracedCall& call) {
    const uint64_t track = Track(uint64_t{call.thread} + 1);
    ProtobufMessage begin;
    begin.Number(event::kType, event::kBegin)
        .Number(event::kTrack, track)
        .Number(event::kNameNumber, uint64_t{call.operation} + 1)
        .Message(event::kAnnotation, Annotation("call", call.number));
    for (size_t i = 0; i < call.arguments.size(); ++i) {
      begin.Message(event::kAnnotation,
                    Annotation("argument " + std::to_string(i + 1), call.arguments[i]));
    }
    if (!call.endedNs) {
      begin.Message(
          event::kAnnotation,
          ProtobufMessage().Text(annotation::kName, "returned").Text(annotation::kText, "no"));
    }
    Event(call.beganNs, begin);
    if (!call.endedNs) return;
    ProtobufMessage end;
    end.Number(event::kType, event::kEnd).Number(event::kTrack, track);
    for (size_t i = 0; i < call.results.size(); ++i) {
      end.Message(event::kAnnotation,
                  Annotation(i == 0 ? "answer" : "result " + std::to_string(i), call.results[i]));
    }
    Event(*call.endedNs, end);
  }

  void Mark(uint64_t monotonicNs, std::string_view text) {
    Event(monotonicNs, ProtobufMessage()
                           .Number(event::kType, event::kInstant)
                           .Number(event::kTrack, Track(0))
                           .Text(event::kName, text));
  }

  const PlacedTrace& placed_;
  const TraceFile& file_;
  uint64_t sequence_;
  std::string& out_;
};

}  // namespace

std::string ToPerfetto(std::span<const PlacedTrace> traces) {
  std::string out;
  for (size_t i = 0; i < traces.size(); ++i) PerfettoTrace(traces[i], i + 1, out).Write();
  return out;
}

}  // namespace vorn::kit
