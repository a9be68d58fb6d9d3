// The file that the trace layer leaves: docs/trace-format.md. Little-endian, fixed records, in a
// file that is mapped while it grows, so that it is whole up to the last finished call however a
// process ends.
//
//     | header, 4096 bytes | names of operations, 64 bytes each | slot 0 | slot 1 | ...
//
// A slot is one call: a record that is written before it and one that is written behind it.
#ifndef VORN_SHARED_TRACE_TRACE_FORMAT_H_
#define VORN_SHARED_TRACE_TRACE_FORMAT_H_

#include <cstddef>
#include <cstdint>

namespace vorn::trace {

inline constexpr char kMagic[8] = {'v', 't', 'r', 'a', 'c', 'e', '\n', '\0'};
inline constexpr uint32_t kVersion = 1;

struct Header {
  char magic[8];
  uint32_t version;
  uint32_t headerBytes;  ///< where the names begin
  uint32_t nameBytes;    ///< of one name, zero-terminated
  uint32_t names;        ///< how many; a record counts operations from 0 among them
  uint32_t slotBytes;
  uint32_t pid;
  uint64_t slotsAt;  ///< where slot 0 begins
  uint64_t slots;    ///< for how many there is room
  uint64_t
      calls;  ///< how many to be noted began, those beyond `slots` included: these were dropped
  uint64_t monotonicNs;  ///< of the same moment: CLOCK_MONOTONIC, by which records tell time,
  uint64_t realtimeNs;   ///< and CLOCK_REALTIME
  uint64_t clockNs;      ///< one reading of the clock, the median of many
  uint64_t endedNs;      ///< when the layer was taken down; 0 if it never was
  char host[256];        ///< zero-terminated, as all texts here; cut where it is longer
  char program[1024];
  char runtime[1024];  ///< the library behind the layer; empty before the first call
  char other[1024];    ///< a runtime that was opened later and not called by way of the layer
  uint64_t passed;     ///< calls that the setting `only` left out; they count in `number` alone
  char settings[512];  ///< in force, as lines "calls=131072"; empty in the oldest traces
};
inline constexpr uint32_t kHeaderBytes = 4096;
inline constexpr uint32_t kNameBytes = 64;
static_assert(sizeof(Header) <= kHeaderBytes);

enum class Side : uint32_t { kNone = 0, kBefore = 1, kBehind = 2 };

struct Record {
  uint64_t
      number;  ///< of the call among all, from 1; written last: 0 in a record that is not whole
  uint64_t timeNs;
  uint32_t thread;  ///< as the system counts them
  uint16_t operation;
  uint16_t words;  ///< how many of `word` hold something
  Side side;
  uint32_t reserved;
  /// Before: the arguments, widened with their sign, addresses as numbers. Behind: the answer,
  /// then, where that was a success, what was written to each place for a handle, a number or an
  /// address.
  uint64_t word[4];
};
static_assert(sizeof(Record) == 64);

struct Slot {
  Record before;
  Record behind;
};
static_assert(sizeof(Slot) == 128);

}  // namespace vorn::trace

#endif  // VORN_SHARED_TRACE_TRACE_FORMAT_H_
