// Tensors that a model is known to give: the only contract that knows what a model computes, and so
// the order of inputs, outputs and elements.
#include <filesystem>

#include "model.h"

namespace conformance {
namespace {

class Answers : public ModelContract {
 protected:
  std::string Lacks() const override {
    return Given().answers.empty() ? "--answers is not given" : ModelContract::Lacks();
  }

  static std::string File(const char* kind, size_t index) {
    return std::filesystem::path(Given().answers) / (kind + std::to_string(index) + ".bin");
  }
};

CONTRACT(Answers, AreGiven) {
  Dataset in = model->Inputs(1);
  for (size_t i = 0; i < model->DataInputCount(); ++i) {
    const Tensor& tensor = model->inputs()[i];
    const Bytes dense = ReadFile(File("input", i));
    Require(dense.size() == tensor.Rows() * tensor.RowBytes(),
            File("input", i) + " is not as large as input " + std::to_string(i));
    PutRows(in.Content(i), tensor, dense);
  }
  const auto results = model->Execute(in);
  std::vector<Bytes> expected;
  for (size_t i = 0; i < results.size(); ++i) expected.push_back(ReadFile(File("output", i)));
  model->ExpectSame(expected, results, Given().tolerance, "over the inputs of --answers");
}

}  // namespace
}  // namespace conformance
