// Nothing of what a file says is believed before it was compared with the file's size.
#include "kit/trace/trace_file.h"

#include <algorithm>
#include <cstring>

#include "kit/common/fault.h"
#include "shared/trace/trace_format.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostWords = std::size(trace::Record{}.word);
constexpr uint32_t kMostNames = 65536;

[[noreturn]] void Refuse(const std::string& reason) {
  throw Fault(ExitStatus::kInput, "this is no trace: " + reason);
}

template <size_t kSize>
std::string TextOf(const char (&text)[kSize]) {
  return {text, strnlen(text, kSize)};
}

trace::Header ReadHeader(std::string_view bytes) {
  trace::Header header;
  if (bytes.size() < trace::kHeaderBytes) {
    Refuse("it has " + std::to_string(bytes.size()) + " bytes, and the header alone takes " +
           std::to_string(trace::kHeaderBytes));
  }
  std::memcpy(&header, bytes.data(), sizeof(header));
  if (std::memcmp(header.magic, trace::kMagic, sizeof(trace::kMagic)) != 0) {
    Refuse("it does not begin as one does");
  }
  if (header.version != trace::kVersion) {
    Refuse("it is of version " + std::to_string(header.version) + ", and this program knows 1");
  }
  if (header.slotBytes != sizeof(trace::Slot)) {
    Refuse("its slots have " + std::to_string(header.slotBytes) + " bytes instead of " +
           std::to_string(sizeof(trace::Slot)));
  }
  return header;
}

std::vector<std::string> ReadNames(std::string_view bytes, const trace::Header& header) {
  const bool fits = header.names <= kMostNames && header.headerBytes <= bytes.size() &&
                    uint64_t{header.names} * header.nameBytes <= bytes.size() - header.headerBytes;
  if (!fits || header.nameBytes == 0) Refuse("the names of its operations are not all there");
  std::vector<std::string> names;
  for (uint32_t i = 0; i < header.names; ++i) {
    const char* name = bytes.data() + header.headerBytes + uint64_t{i} * header.nameBytes;
    names.emplace_back(name, strnlen(name, header.nameBytes));
  }
  return names;
}

bool IsWhole(const trace::Record& record, trace::Side side, const trace::Header& header) {
  return record.number != 0 && record.side == side && record.operation < header.names &&
         record.words <= kMostWords;
}

}  // namespace

TraceFile ParseTrace(std::string_view bytes) {
  const trace::Header header = ReadHeader(bytes);
  TraceFile file;
  file.pid = header.pid;
  file.monotonicNs = header.monotonicNs;
  file.realtimeNs = header.realtimeNs;
  file.clockNs = header.clockNs;
  if (header.endedNs != 0) file.endedNs = header.endedNs;
  file.host = TextOf(header.host);
  file.program = TextOf(header.program);
  file.runtime = TextOf(header.runtime);
  file.other = TextOf(header.other);
  file.passed = header.passed;
  file.settings = TextOf(header.settings);
  file.operations = ReadNames(bytes, header);
  if (header.slotsAt > bytes.size()) Refuse("it ends before its first call");

  // The room for calls is made with the first of them, and a copy of the file may be cut.
  const uint64_t there = (bytes.size() - header.slotsAt) / sizeof(trace::Slot);
  const uint64_t count = std::min({header.calls, header.slots, there});
  file.cut = std::min(header.calls, header.slots) - count;
  file.dropped = header.calls - std::min(header.calls, header.slots);
  for (uint64_t i = 0; i < count; ++i) {
    trace::Slot slot;
    std::memcpy(&slot, bytes.data() + header.slotsAt + i * sizeof(slot), sizeof(slot));
    // Its thread had the number and had not come further.
    if (!IsWhole(slot.before, trace::Side::kBefore, header)) continue;
    TracedCall& call = file.calls.emplace_back();
    call.number = slot.before.number;
    call.operation = slot.before.operation;
    call.thread = slot.before.thread;
    call.beganNs = slot.before.timeNs;
    call.arguments.assign(slot.before.word, slot.before.word + slot.before.words);
    if (!IsWhole(slot.behind, trace::Side::kBehind, header)) continue;
    call.endedNs = std::max(slot.behind.timeNs, slot.before.timeNs);
    call.results.assign(slot.behind.word, slot.behind.word + slot.behind.words);
  }
  return file;
}

}  // namespace vorn::kit
