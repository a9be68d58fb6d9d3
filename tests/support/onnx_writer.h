// Small ONNX models, written in memory for tests.
//
//     OnnxWriter model;
//     model.Input("x", kOnnxFloat, {"batch", 3}).Output("y", kOnnxFloat, {"batch", 3});
//     model.Node("Relu", {"x"}, {"y"});
//     std::string image = model.Image();
//
// Writes protocol-buffers bytes by hand: field numbers are those of the ONNX format, IR version 8,
// operator set 17 unless another is asked for. Nothing is checked, since tests want wrong models
// as well.
#ifndef VORN_TESTS_SUPPORT_ONNX_WRITER_H_
#define VORN_TESTS_SUPPORT_ONNX_WRITER_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

/// Element type codes of the ONNX format.
enum OnnxType : uint64_t {
  kOnnxFloat = 1,
  kOnnxUint8 = 2,
  kOnnxInt8 = 3,
  kOnnxUint16 = 4,
  kOnnxInt16 = 5,
  kOnnxInt32 = 6,
  kOnnxInt64 = 7,
  kOnnxString = 8,
  kOnnxBool = 9,
  kOnnxFloat16 = 10,
  kOnnxDouble = 11,
  kOnnxUint32 = 12,
  kOnnxUint64 = 13,
  kOnnxComplex64 = 14,
  kOnnxBfloat16 = 16
};

/// A size, or the name of an open dimension; an empty name leaves it open and nameless.
struct OnnxDim {
  OnnxDim(int dimSize) : size(dimSize) {}
  OnnxDim(int64_t dimSize) : size(dimSize) {}
  OnnxDim(const char* name) : isOpen(true), symbol(name) {}

  int64_t size = 0;
  bool isOpen = false;
  std::string symbol;
};

/// One protocol-buffers message as it grows.
class WireWriter {
 public:
  WireWriter& Varint(uint32_t field, uint64_t value);
  WireWriter& Bytes(uint32_t field, std::string_view bytes);
  const std::string& str() const { return bytes_; }

 private:
  void Raw(uint64_t value);
  std::string bytes_;
};

class OnnxWriter {
 public:
  OnnxWriter& Input(const std::string& name, OnnxType type, const std::vector<OnnxDim>& dims);
  OnnxWriter& Output(const std::string& name, OnnxType type, const std::vector<OnnxDim>& dims);
  /// A tensor whose shape, and so whose rank, is not declared.
  OnnxWriter& ShapelessInput(const std::string& name, OnnxType type);
  OnnxWriter& ShapelessOutput(const std::string& name, OnnxType type);
  /// A value that may be a tensor or nothing.
  OnnxWriter& OptionalInput(const std::string& name, OnnxType element);
  OnnxWriter& SequenceInput(const std::string& name, OnnxType element);

  /// `attributes` are messages of the format, e.g. from `IntAttribute`.
  OnnxWriter& Node(const std::string& op, const std::vector<std::string>& inputs,
                   const std::vector<std::string>& outputs,
                   const std::vector<std::string>& attributes = {});

  template <typename Value>
  OnnxWriter& Constant(const std::string& name, OnnxType type, const std::vector<int64_t>& dims,
                       const std::vector<Value>& values) {
    std::string raw(values.size() * sizeof(Value), '\0');
    if (!raw.empty()) std::memcpy(raw.data(), values.data(), raw.size());
    return RawConstant(name, type, dims, raw);
  }
  OnnxWriter& RawConstant(const std::string& name, OnnxType type, const std::vector<int64_t>& dims,
                          const std::string& raw);
  /// A constant whose bytes lie in the file `location`.
  OnnxWriter& ExternalConstant(const std::string& name, OnnxType type,
                               const std::vector<int64_t>& dims, const std::string& location);

  /// A metadata property of the file.
  OnnxWriter& Metadata(const std::string& name, const std::string& text);

  OnnxWriter& OperatorSet(uint64_t version) {
    operatorSet_ = version;
    return *this;
  }

  std::string Image() const;
  /// The graph alone, for `GraphAttribute`.
  std::string Graph() const { return graph_.str(); }

 private:
  uint64_t operatorSet_ = 17;
  WireWriter graph_;
  WireWriter metadata_;
};

std::string StringAttribute(const std::string& name, const std::string& text);
std::string IntAttribute(const std::string& name, int64_t value);
std::string GraphAttribute(const std::string& name, const std::string& graph);

#endif  // VORN_TESTS_SUPPORT_ONNX_WRITER_H_
