// A trace put together by hand, as docs/trace-format.md draws it.
#ifndef VORN_TESTS_KIT_TRACE_TRACE_BYTES_H_
#define VORN_TESTS_KIT_TRACE_TRACE_BYTES_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

struct CallBytes {
  uint16_t operation;
  uint64_t beganNs;
  uint64_t endedNs;  // 0: it did not return
  std::vector<uint64_t> arguments{};
  std::vector<uint64_t> results{0};
  uint32_t thread = 7;
};

class TraceBytes {
 public:
  explicit TraceBytes(const std::vector<std::string>& names, uint64_t slots = 1000)
      : bytes_(8192, '\0') {
    Put(0, std::string("vtrace\n\0", 8));
    Put32(8, 1);
    Put32(12, 4096);
    Put32(16, 64);
    Put32(20, static_cast<uint32_t>(names.size()));
    Put32(24, 128);
    Put32(28, 42);
    Put64(32, 8192);
    Put64(40, slots);
    Put64(56, 1000);  // when the layer was loaded
    Put64(64, 5000);
    Put64(72, 20);
    Put(88, "board");
    Put(344, "/bin/program");
    Put(1368, "/lib/libvorn.so");
    for (size_t i = 0; i < names.size(); ++i) Put(4096 + 64 * i, names[i]);
  }

  TraceBytes& Call(const CallBytes& call) {
    ++calls_;
    Put64(48, calls_);
    const size_t at = bytes_.size();
    bytes_.resize(at + 128, '\0');
    Record(at, call, 1, call.beganNs, call.arguments);
    if (call.endedNs != 0) Record(at + 64, call, 2, call.endedNs, call.results);
    return *this;
  }

  TraceBytes& Ended(uint64_t timeNs) {
    Put64(80, timeNs);
    return *this;
  }

  void Put(size_t at, const std::string& text) { bytes_.replace(at, text.size(), text); }
  void Put64(size_t at, uint64_t value) { std::memcpy(bytes_.data() + at, &value, sizeof(value)); }
  void Put32(size_t at, uint32_t value) { std::memcpy(bytes_.data() + at, &value, sizeof(value)); }
  void Put16(size_t at, uint16_t value) { std::memcpy(bytes_.data() + at, &value, sizeof(value)); }

  [[nodiscard]] const std::string& Text() const { return bytes_; }

 private:
  void Record(size_t at, const CallBytes& call, uint32_t side, uint64_t timeNs,
              const std::vector<uint64_t>& words) {
    Put64(at, calls_);
    Put64(at + 8, timeNs);
    Put32(at + 16, call.thread);
    Put16(at + 20, call.operation);
    Put16(at + 22, static_cast<uint16_t>(words.size()));
    Put32(at + 24, side);
    for (size_t i = 0; i < words.size(); ++i) Put64(at + 32 + 8 * i, words[i]);
  }

  std::string bytes_;
  uint64_t calls_ = 0;
};

#endif  // VORN_TESTS_KIT_TRACE_TRACE_BYTES_H_
