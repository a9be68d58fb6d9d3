// Changes of a model image that keep it readable: the fields of its protocol-buffers messages are
// changed, taken out, doubled and exchanged, and every length around them is written anew. Bytes
// changed anywhere, which mostly break a length, are left to the fuzzer's own mutator half the
// time.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

enum WireType : uint32_t { kVarint = 0, kFixed64 = 1, kLength = 2, kFixed32 = 5 };

struct Field {
  uint64_t tag = 0;
  uint64_t value = 0;          // of a varint
  std::string bytes;           // of anything else that is no message
  std::vector<Field> message;  // of a length that reads as one; empty otherwise

  [[nodiscard]] uint32_t wireType() const { return tag & 7; }
};

using Fields = std::vector<Field>;
constexpr int kDeepest = 12;

std::optional<uint64_t> TakeVarint(std::string_view& rest) {
  uint64_t value = 0;
  for (unsigned shift = 0; shift < 64 && !rest.empty(); shift += 7) {
    const auto byte = static_cast<uint8_t>(rest.front());
    rest.remove_prefix(1);
    value |= uint64_t{byte & 0x7fU} << shift;
    if (byte < 0x80) return value;
  }
  return std::nullopt;
}

std::optional<Fields> Read(std::string_view rest, int depth) {
  Fields fields;
  while (!rest.empty()) {
    Field field;
    const auto tag = TakeVarint(rest);
    if (!tag || *tag >> 3 == 0 || *tag > UINT32_MAX) return std::nullopt;
    field.tag = *tag;
    uint64_t length = field.wireType() == kFixed64 ? 8 : 4;
    if (field.wireType() == kVarint || field.wireType() == kLength) {
      const auto number = TakeVarint(rest);
      if (!number) return std::nullopt;
      field.value = length = *number;
    } else if (field.wireType() != kFixed64 && field.wireType() != kFixed32) {
      return std::nullopt;
    }
    if (field.wireType() != kVarint) {
      if (length > rest.size()) return std::nullopt;
      field.bytes = rest.substr(0, length);
      rest.remove_prefix(length);
    }
    if (field.wireType() == kLength && depth < kDeepest) {
      field.message = Read(field.bytes, depth + 1).value_or(Fields());
    }
    fields.push_back(std::move(field));
  }
  return fields;
}

void PutVarint(std::string& out, uint64_t value) {
  for (; value >= 0x80; value >>= 7) out += static_cast<char>(value | 0x80);
  out += static_cast<char>(value);
}

std::string Write(const Fields& fields) {
  std::string out;
  for (const Field& field : fields) {
    PutVarint(out, field.tag);
    if (field.wireType() == kVarint) {
      PutVarint(out, field.value);
      continue;
    }
    const std::string bytes = field.message.empty() ? field.bytes : Write(field.message);
    if (field.wireType() == kLength) PutVarint(out, bytes.size());
    out += bytes;
  }
  return out;
}

/// Every list of fields in the tree, so that each field of it is as likely as any other one.
void Collect(Fields& fields, std::vector<std::pair<Fields*, size_t>>& all) {
  for (size_t i = 0; i < fields.size(); ++i) {
    all.emplace_back(&fields, i);
    Collect(fields[i].message, all);
  }
}

void MutateBytes(std::string& bytes) {
  const size_t size = bytes.size();
  bytes.resize(size + 16);
  bytes.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(bytes.data()), size, bytes.size()));
}

/// Another number, or other bytes; a message stays as it is.
void ChangeValue(Field& field, std::minstd_rand& random) {
  static constexpr uint64_t kNumbers[] = {0,         1,          2,         7,          255,
                                          1 << 16,   INT32_MAX,  1U << 31,  UINT32_MAX, 1ULL << 40,
                                          INT64_MAX, 1ULL << 63, UINT64_MAX};
  if (field.wireType() == kVarint) {
    const bool isNearby = random() % 2 != 0;
    field.value =
        isNearby ? field.value + random() % 5 - 2 : kNumbers[random() % std::size(kNumbers)];
    return;
  }
  if (!field.message.empty()) return;
  MutateBytes(field.bytes);
  if (field.wireType() == kFixed64) field.bytes.resize(8);
  if (field.wireType() == kFixed32) field.bytes.resize(4);
}

void MutateOnce(Fields& fields, std::minstd_rand& random) {
  std::vector<std::pair<Fields*, size_t>> all;
  Collect(fields, all);
  if (all.empty()) return;
  const auto [list, index] = all[random() % all.size()];
  const auto place = list->begin() + static_cast<std::ptrdiff_t>(index);
  const auto [otherList, otherIndex] = all[random() % all.size()];
  switch (random() % 6) {
    case 0:
      list->erase(place);
      break;
    case 1:
      list->insert(place, Field(*place));
      break;
    case 2:
      *place = Field((*otherList)[otherIndex]);
      break;
    default:
      ChangeValue(*place, random);
      break;
  }
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize,
                                          unsigned seed) {
  std::minstd_rand random(seed);
  auto fields = Read({reinterpret_cast<const char*>(data), size}, 0);
  if (!fields || random() % 2 == 0) return LLVMFuzzerMutate(data, size, maxSize);
  for (auto changes = 1 + random() % 3; changes > 0; --changes) MutateOnce(*fields, random);
  const std::string image = Write(*fields);
  if (image.size() > maxSize) return LLVMFuzzerMutate(data, size, maxSize);
  std::copy(image.begin(), image.end(), data);
  return image.size();
}
