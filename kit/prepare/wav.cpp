#include "kit/prepare/wav.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <vector>

#include "kit/common/printable.h"
#include "kit/tensor/input_file.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kUnknownSize = 0xFFFFFFFF;
constexpr size_t kFileHeadBytes = 12;
constexpr size_t kChunkHeadBytes = 8;
constexpr int kMostChunks = 4096;

constexpr uint64_t kPcm = 1;
constexpr uint64_t kFloats = 3;
constexpr uint64_t kExtensible = 0xFFFE;

uint64_t Number(std::span<const std::byte> bytes, size_t at, size_t size) {
  uint64_t value = 0;
  for (size_t i = size; i > 0; --i)
    value = value << 8 | std::to_integer<uint64_t>(bytes[at + i - 1]);
  return value;
}

std::string Letters(std::span<const std::byte> bytes, size_t at) {
  return {reinterpret_cast<const char*>(bytes.data()) + at, 4};
}

struct Chunk {
  std::string id;
  uint64_t bytes = 0;
  uint64_t offset = 0;  ///< of what it holds
};

/// Goes from chunk to chunk of a file.
class WavFile {
 public:
  explicit WavFile(const std::string& path) : file_(path, "the sound") {
    std::array<std::byte, kFileHeadBytes> head{};
    if (file_.Bytes() < head.size()) file_.Refuse("is no WAV: it ends within its head");
    file_.ReadAt(0, head);
    const std::string begin = Letters(head, 0);
    if (begin == "RIFX") {
      file_.Refuse("is a WAV with its bytes in the other order (RIFX), which is not read");
    }
    if (!IsWav({reinterpret_cast<const char*>(head.data()), head.size()})) {
      file_.Refuse("is no WAV: it does not begin with RIFF or RF64, and WAVE");
    }
    isLarge_ = begin != "RIFF";
    wholeBytes_ = Number(head, 4, 4);
    source_.path = path;
  }

  SignalSource Read() {
    bool hasFormat = false;
    for (int count = 0; count < kMostChunks; ++count) {
      const Chunk chunk = NextChunk(hasFormat);
      if (chunk.id == "data") {
        if (!hasFormat) file_.Refuse("has samples before it tells what they are (\"fmt \")");
        TakeData(chunk);
        return source_;
      }
      if (chunk.id == "fmt ") {
        if (hasFormat) file_.Refuse("tells twice what its samples are (\"fmt \")");
        TakeFormat(chunk);
        hasFormat = true;
      } else if (chunk.id == "ds64" && isLarge_) {
        TakeSizes(chunk);
      }
      at_ = chunk.offset + chunk.bytes + chunk.bytes % 2;
    }
    file_.Refuse("has more than " + std::to_string(kMostChunks) + " chunks before its samples");
  }

 private:
  Chunk NextChunk(bool hasFormat) {
    std::array<std::byte, kChunkHeadBytes> head{};
    if (at_ > file_.Bytes() || file_.Bytes() - at_ < head.size()) {
      file_.Refuse(std::string("was cut off: it ends before its ") +
                   (hasFormat ? "samples (\"data\")" : "format (\"fmt \")"));
    }
    file_.ReadAt(at_, head);
    Chunk chunk{Letters(head, 0), Number(head, 4, 4), at_ + head.size()};
    // Of the samples the size may be somewhere else, or nowhere.
    if (chunk.id != "data" && chunk.bytes > file_.Bytes() - chunk.offset) {
      file_.Refuse("was cut off: its chunk " + Quoted(chunk.id) + " has " + SizeText(chunk.bytes) +
                   ", and " + SizeText(file_.Bytes() - chunk.offset) + " follow");
    }
    return chunk;
  }

  std::vector<std::byte> Contents(const Chunk& chunk, size_t least, size_t most) {
    if (chunk.bytes < least) {
      file_.Refuse("has a chunk " + Quoted(chunk.id) + " of " + SizeText(chunk.bytes) +
                   ", and it takes " + std::to_string(least) + " at least");
    }
    std::vector<std::byte> bytes(std::min<uint64_t>(chunk.bytes, most));
    file_.ReadAt(chunk.offset, bytes);
    return bytes;
  }

  void TakeSizes(const Chunk& chunk) { largeDataBytes_ = Number(Contents(chunk, 16, 16), 8, 8); }

  void TakeFormat(const Chunk& chunk) {
    const std::vector<std::byte> bytes = Contents(chunk, 16, 40);
    uint64_t kind = Number(bytes, 0, 2);
    if (kind == kExtensible) kind = KindOfExtensible(bytes);
    source_.channels = Number(bytes, 2, 2);
    source_.rate = Number(bytes, 4, 4);
    const uint64_t momentBytes = Number(bytes, 12, 2);
    const uint64_t bits = Number(bytes, 14, 2);
    const bool isPcm = kind == kPcm && (bits == 8 || bits == 16 || bits == 24 || bits == 32);
    const bool isFloat = kind == kFloats && (bits == 32 || bits == 64);
    if (!isPcm && !isFloat) {
      file_.Refuse("has samples of kind " + std::to_string(kind) + " with " + Counted(bits, "bit") +
                   "; PCM (1) of 8, 16, 24 and 32 and floats (3) of 32 and 64 are read");
    }
    if (source_.channels == 0 || source_.rate == 0 || momentBytes != source_.channels * bits / 8) {
      file_.Refuse("contradicts itself: " + Counted(source_.channels, "channel") + " of " +
                   Counted(bits, "bit") + ", " + Counted(momentBytes, "byte") + " together, " +
                   std::to_string(source_.rate) + " a second");
    }
    source_.format.bytes = static_cast<uint32_t>(bits / 8);
    source_.format.kind = isFloat     ? SampleFormat::Kind::kFloat
                          : bits == 8 ? SampleFormat::Kind::kUnsigned
                                      : SampleFormat::Kind::kSigned;
  }

  // Behind the kind stands what makes a name of it that is like no other.
  uint64_t KindOfExtensible(std::span<const std::byte> bytes) {
    constexpr std::array<uint8_t, 14> kBehindKind{0,    0, 0,    0,    0x10, 0,    0x80,
                                                  0x00, 0, 0xAA, 0x00, 0x38, 0x9B, 0x71};
    constexpr size_t kKindAt = 24;
    bool isKnown = bytes.size() == kKindAt + 2 + kBehindKind.size();
    for (size_t i = 0; isKnown && i < kBehindKind.size(); ++i) {
      isKnown = std::to_integer<uint8_t>(bytes[kKindAt + 2 + i]) == kBehindKind[i];
    }
    if (!isKnown) file_.Refuse("has samples of an extensible kind that is not known");
    return Number(bytes, kKindAt, 2);
  }

  void TakeData(const Chunk& chunk) {
    const uint64_t rest = file_.Bytes() - chunk.offset;
    uint64_t bytes = chunk.bytes;
    if (bytes == kUnknownSize && isLarge_ && largeDataBytes_) {
      bytes = *largeDataBytes_;
    } else if (bytes == kUnknownSize ||
               (bytes == 0 && (wholeBytes_ == 0 || wholeBytes_ == kUnknownSize))) {
      bytes = rest;
    }
    if (bytes > rest) {
      file_.Refuse("was cut off: it tells of " + SizeText(bytes) + " of samples, and " +
                   SizeText(rest) + " follow");
    }
    const uint64_t momentBytes = source_.channels * source_.format.bytes;
    if (bytes % momentBytes != 0) {
      file_.Refuse("ends within a sample: " + SizeText(bytes) + " of samples are no multiple of " +
                   std::to_string(momentBytes));
    }
    source_.offsetBytes = chunk.offset;
    source_.samples = bytes / momentBytes;
  }

  InputFile file_;
  bool isLarge_ = false;
  uint64_t wholeBytes_ = 0;  ///< as the head tells
  uint64_t at_ = kFileHeadBytes;
  std::optional<uint64_t> largeDataBytes_;
  SignalSource source_;
};

}  // namespace

bool IsWav(std::string_view head) {
  const bool isBegin =
      head.starts_with("RIFF") || head.starts_with("RF64") || head.starts_with("BW64");
  return isBegin && head.size() >= kFileHeadBytes && head.substr(8, 4) == "WAVE";
}

SignalSource OpenWav(const std::string& path) { return WavFile(path).Read(); }

}  // namespace vorn::kit
