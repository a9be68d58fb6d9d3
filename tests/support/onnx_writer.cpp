// ONNX messages as bytes.
#include "support/onnx_writer.h"

namespace {

std::string TensorType(OnnxType type, const std::string* shape) {
  WireWriter tensor;
  tensor.Varint(1, type);
  if (shape != nullptr) tensor.Bytes(2, *shape);
  return WireWriter().Bytes(1, tensor.str()).str();
}

std::string ShapeMessage(const std::vector<OnnxDim>& dims) {
  WireWriter shape;
  for (const OnnxDim& dim : dims) {
    WireWriter message;
    if (!dim.isOpen) message.Varint(1, static_cast<uint64_t>(dim.size));
    if (!dim.symbol.empty()) message.Bytes(2, dim.symbol);
    shape.Bytes(1, message.str());
  }
  return shape.str();
}

std::string Value(const std::string& name, const std::string& type) {
  return WireWriter().Bytes(1, name).Bytes(2, type).str();
}

std::string Tensor(const std::string& name, OnnxType type, const std::vector<OnnxDim>& dims) {
  const std::string shape = ShapeMessage(dims);
  return Value(name, TensorType(type, &shape));
}

WireWriter TensorHead(const std::string& name, OnnxType type, const std::vector<int64_t>& dims) {
  WireWriter tensor;
  for (const int64_t dim : dims) tensor.Varint(1, static_cast<uint64_t>(dim));
  tensor.Varint(2, type).Bytes(8, name);
  return tensor;
}

}  // namespace

void WireWriter::Raw(uint64_t value) {
  while (value >= 0x80) {
    bytes_.push_back(static_cast<char>(value | 0x80));
    value >>= 7;
  }
  bytes_.push_back(static_cast<char>(value));
}

WireWriter& WireWriter::Varint(uint32_t field, uint64_t value) {
  Raw(uint64_t{field} << 3);
  Raw(value);
  return *this;
}

WireWriter& WireWriter::Bytes(uint32_t field, std::string_view bytes) {
  Raw(uint64_t{field} << 3 | 2);
  Raw(bytes.size());
  bytes_ += bytes;
  return *this;
}

OnnxWriter& OnnxWriter::Input(const std::string& name, OnnxType type,
                              const std::vector<OnnxDim>& dims) {
  graph_.Bytes(11, Tensor(name, type, dims));
  return *this;
}

OnnxWriter& OnnxWriter::Output(const std::string& name, OnnxType type,
                               const std::vector<OnnxDim>& dims) {
  graph_.Bytes(12, Tensor(name, type, dims));
  return *this;
}

OnnxWriter& OnnxWriter::ShapelessInput(const std::string& name, OnnxType type) {
  graph_.Bytes(11, Value(name, TensorType(type, nullptr)));
  return *this;
}

OnnxWriter& OnnxWriter::ShapelessOutput(const std::string& name, OnnxType type) {
  graph_.Bytes(12, Value(name, TensorType(type, nullptr)));
  return *this;
}

OnnxWriter& OnnxWriter::OptionalInput(const std::string& name, OnnxType element) {
  const std::string optional = WireWriter().Bytes(1, TensorType(element, nullptr)).str();
  graph_.Bytes(11, Value(name, WireWriter().Bytes(9, optional).str()));
  return *this;
}

OnnxWriter& OnnxWriter::SequenceInput(const std::string& name, OnnxType element) {
  const std::string sequence = WireWriter().Bytes(1, TensorType(element, nullptr)).str();
  graph_.Bytes(11, Value(name, WireWriter().Bytes(4, sequence).str()));
  return *this;
}

OnnxWriter& OnnxWriter::Node(const std::string& op, const std::vector<std::string>& inputs,
                             const std::vector<std::string>& outputs,
                             const std::vector<std::string>& attributes) {
  WireWriter node;
  for (const std::string& input : inputs) node.Bytes(1, input);
  for (const std::string& output : outputs) node.Bytes(2, output);
  node.Bytes(4, op);
  for (const std::string& attribute : attributes) node.Bytes(5, attribute);
  graph_.Bytes(1, node.str());
  return *this;
}

OnnxWriter& OnnxWriter::RawConstant(const std::string& name, OnnxType type,
                                    const std::vector<int64_t>& dims, const std::string& raw) {
  graph_.Bytes(5, TensorHead(name, type, dims).Bytes(9, raw).str());
  return *this;
}

OnnxWriter& OnnxWriter::ExternalConstant(const std::string& name, OnnxType type,
                                         const std::vector<int64_t>& dims,
                                         const std::string& location) {
  const std::string entry = WireWriter().Bytes(1, "location").Bytes(2, location).str();
  graph_.Bytes(5, TensorHead(name, type, dims).Bytes(13, entry).Varint(14, 1).str());
  return *this;
}

OnnxWriter& OnnxWriter::Metadata(const std::string& name, const std::string& text) {
  metadata_.Bytes(14, WireWriter().Bytes(1, name).Bytes(2, text).str());
  return *this;
}

std::string OnnxWriter::Image() const {
  const std::string graph = graph_.str() + WireWriter().Bytes(2, "test").str();
  const std::string operators = WireWriter().Bytes(1, "").Varint(2, operatorSet_).str();
  return WireWriter().Varint(1, 8).Bytes(7, graph).Bytes(8, operators).str() + metadata_.str();
}

std::string StringAttribute(const std::string& name, const std::string& text) {
  return WireWriter().Bytes(1, name).Bytes(4, text).Varint(20, 3).str();
}

std::string IntAttribute(const std::string& name, int64_t value) {
  return WireWriter().Bytes(1, name).Varint(3, static_cast<uint64_t>(value)).Varint(20, 2).str();
}

std::string GraphAttribute(const std::string& name, const std::string& graph) {
  const std::string named = graph + WireWriter().Bytes(2, name).str();
  return WireWriter().Bytes(1, name).Bytes(6, named).Varint(20, 5).str();
}
