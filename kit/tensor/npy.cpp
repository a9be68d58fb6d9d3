#include "kit/tensor/npy.h"

#include <array>
#include <bit>
#include <charconv>
#include <optional>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kMagic = "\x93NUMPY";
constexpr std::string_view kZipMagic = "PK\x03\x04";
constexpr size_t kMostHeadText = 1 << 20;
constexpr size_t kMostDimensions = 64;
constexpr size_t kMostShown = 60;

struct NpyType {
  std::string_view code;  ///< kind and bytes, behind the byte order
  ElementType type;
};

constexpr std::array kNpyTypes{
    NpyType{"f2", ElementType::kFloat16}, NpyType{"f4", ElementType::kFloat32},
    NpyType{"f8", ElementType::kFloat64}, NpyType{"i1", ElementType::kInt8},
    NpyType{"u1", ElementType::kUint8},   NpyType{"i2", ElementType::kInt16},
    NpyType{"u2", ElementType::kUint16},  NpyType{"i4", ElementType::kInt32},
    NpyType{"u4", ElementType::kUint32},  NpyType{"i8", ElementType::kInt64},
    NpyType{"u8", ElementType::kUint64},  NpyType{"b1", ElementType::kBool},
};

[[noreturn]] void RefuseNpy(const std::string& path, const std::string& reason) {
  throw Fault(ExitStatus::kInput, "the array '" + Printable(path) + "' " + reason);
}

std::string Shown(std::string_view text) {
  const bool isLong = text.size() > kMostShown;
  return "'" + Printable(text.substr(0, kMostShown)) + (isLong ? "…'" : "'");
}

uint64_t LittleEndian(std::string_view bytes) {
  uint64_t value = 0;
  for (size_t i = bytes.size(); i > 0; --i) {
    value = value << 8 | static_cast<unsigned char>(bytes[i - 1]);
  }
  return value;
}

// The words of the text, which is what Python prints of a dictionary.
class HeadText {
 public:
  HeadText(const std::string& path, std::string_view text) : path_(path), rest_(text) {}

  bool Take(char wanted) {
    SkipBlanks();
    if (rest_.empty() || rest_[0] != wanted) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void Need(char wanted) {
    if (!Take(wanted)) Refuse(std::string("'") + wanted + "'");
  }

  std::string_view TakeText() {
    SkipBlanks();
    const char quote = rest_.empty() ? '\0' : rest_[0];
    if (quote != '\'' && quote != '"') Refuse("a text in quotes");
    const size_t end = rest_.find(quote, 1);
    if (end == std::string_view::npos) Refuse("the end of a text");
    const std::string_view text = rest_.substr(1, end - 1);
    rest_.remove_prefix(end + 1);
    return text;
  }

  bool TakeTruth() {
    SkipBlanks();
    for (const auto& [word, value] :
         {std::pair{std::string_view("True"), true}, std::pair{std::string_view("False"), false}}) {
      if (!rest_.starts_with(word)) continue;
      rest_.remove_prefix(word.size());
      return value;
    }
    Refuse("True or False");
  }

  uint64_t TakeNumber() {
    SkipBlanks();
    uint64_t number = 0;
    const auto [stop, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), number);
    if (error == std::errc::result_out_of_range) Refuse("a dimension that fits 64 bits");
    if (error != std::errc{}) Refuse("a dimension");
    rest_.remove_prefix(static_cast<size_t>(stop - rest_.data()));
    if (rest_.starts_with('L')) rest_.remove_prefix(1);  // as Python 2 wrote it
    return number;
  }

  bool IsAtEnd() {
    SkipBlanks();
    return rest_.empty();
  }

  [[noreturn]] void Refuse(const std::string& wanted) const {
    const std::string place = rest_.empty() ? "at its end" : "before " + Shown(rest_);
    RefuseNpy(path_, "has a head that lacks " + wanted + " " + place);
  }

 private:
  void SkipBlanks() {
    const size_t first = rest_.find_first_not_of(" \t\r\n");
    rest_.remove_prefix(first == std::string_view::npos ? rest_.size() : first);
  }

  const std::string& path_;
  std::string_view rest_;
};

Shape TakeShape(HeadText& text) {
  Shape shape;
  text.Need('(');
  while (!text.Take(')')) {
    if (shape.size() == kMostDimensions) text.Refuse("the end of a shape, after 64 dimensions,");
    shape.push_back(text.TakeNumber());
    if (!text.Take(',')) {
      text.Need(')');
      break;
    }
  }
  return shape;
}

void SetNpyType(StoredTensor& tensor, std::string_view descr) {
  const char order = descr.empty() ? '\0' : descr[0];
  const bool hasOrder = std::string_view("<>=|").find(order) != std::string_view::npos;
  const std::string_view code = hasOrder ? descr.substr(1) : descr;
  for (const NpyType& known : kNpyTypes) {
    if (known.code != code || order == '\0') continue;
    tensor.type = known.type;
    constexpr bool kIsLittle = std::endian::native == std::endian::little;
    tensor.isSwapped = ElementBytes(known.type) > 1 &&
                       ((order == '<' && !kIsLittle) || (order == '>' && kIsLittle));
    return;
  }
  if (code.starts_with('O')) {
    RefuseNpy(tensor.path, "holds Python objects (" + Shown(descr) +
                               "), which are not read; save it with a type of numbers");
  }
  RefuseNpy(tensor.path, "has elements of the type " + Shown(descr) +
                             "; floats of 2, 4 and 8 bytes, whole numbers and bool are read");
}

// The text of the head without what stands before it; where the values begin.
struct NpyHead {
  std::string_view text;
  uint64_t valuesAt = 0;
};

NpyHead FindHead(const std::string& path, std::string_view bytes) {
  if (bytes.starts_with(kZipMagic)) {
    RefuseNpy(path, "is an archive of arrays under the name of one; name it .npz");
  }
  if (!bytes.starts_with(kMagic)) {
    RefuseNpy(path, "is no .npy file: it does not begin with \\x93NUMPY");
  }
  constexpr size_t kVersionEnd = 8;
  if (bytes.size() < kVersionEnd) RefuseNpy(path, "ends within its head");
  const auto version = static_cast<unsigned char>(bytes[6]);
  if (version < 1 || version > 3) {
    RefuseNpy(path, "has version " + std::to_string(version) + "; 1, 2 and 3 are read");
  }
  const size_t lengthBytes = version == 1 ? 2 : 4;
  if (bytes.size() < kVersionEnd + lengthBytes) RefuseNpy(path, "ends within its head");
  const uint64_t length = LittleEndian(bytes.substr(kVersionEnd, lengthBytes));
  if (length > kMostHeadText) {
    RefuseNpy(path, "claims a head of " + SizeText(length) + "; none of numbers is that long");
  }
  const size_t begin = kVersionEnd + lengthBytes;
  if (bytes.size() - begin < length) RefuseNpy(path, "ends within its head");
  return {bytes.substr(begin, length), begin + length};
}

}  // namespace

StoredTensor ParseNpy(const std::string& path, std::string_view bytes, uint64_t fileBytes) {
  const NpyHead head = FindHead(path, bytes);
  StoredTensor tensor;
  tensor.path = path;
  tensor.offsetBytes = head.valuesAt;
  std::optional<std::string_view> descr;
  std::optional<bool> isColumnMajor;
  HeadText text(path, head.text);
  text.Need('{');
  while (!text.Take('}')) {
    const std::string_view key = text.TakeText();
    text.Need(':');
    const bool isTwice = (key == "descr" && descr) || (key == "fortran_order" && isColumnMajor) ||
                         (key == "shape" && tensor.shape);
    if (isTwice) RefuseNpy(path, "has a head that gives " + std::string(key) + " twice");
    if (key == "descr") {
      if (text.Take('[')) RefuseNpy(path, "holds records of several fields, which are not read");
      descr = text.TakeText();
    } else if (key == "fortran_order") {
      isColumnMajor = text.TakeTruth();
    } else if (key == "shape") {
      tensor.shape = TakeShape(text);
    } else {
      RefuseNpy(path, "has a head with the unknown key " + Shown(key));
    }
    if (!text.Take(',')) {
      text.Need('}');
      break;
    }
  }
  if (!text.IsAtEnd()) text.Refuse("an end");
  if (!descr || !isColumnMajor || !tensor.shape) {
    RefuseNpy(path, "has a head without descr, fortran_order or shape");
  }
  SetNpyType(tensor, *descr);
  tensor.isColumnMajor = *isColumnMajor && tensor.shape->size() > 1;
  const auto elements = CountElements(*tensor.shape);
  const uint64_t most = (fileBytes - std::min(fileBytes, tensor.offsetBytes));
  if (!elements || *elements > most / ElementBytes(tensor.type)) {
    RefuseNpy(path, "should hold " + TextOf(*tensor.shape) + " of " +
                        std::string(ElementName(tensor.type)) + ", and has " + SizeText(most) +
                        " of values; it was cut off");
  }
  const uint64_t surplus = most - *elements * ElementBytes(tensor.type);
  if (surplus > 0) {
    RefuseNpy(path, "holds " + TextOf(*tensor.shape) + " of " +
                        std::string(ElementName(tensor.type)) + ", and " +
                        Counted(surplus, "byte") +
                        " more behind them, which nothing explains; save one array a file");
  }
  tensor.elements = *elements;
  return tensor;
}

StoredTensor OpenNpy(const std::string& path) {
  const FileHead head = ReadFileHead(path, "the array", kMostNpyHead);
  return ParseNpy(path, head.bytes, head.fileBytes);
}

}  // namespace vorn::kit
