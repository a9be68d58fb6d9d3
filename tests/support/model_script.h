// Writes the scripts of the scripted runtime (scripted/script.h). Whatever has no function here is
// added as a line.
#ifndef VORN_TESTS_SUPPORT_MODEL_SCRIPT_H_
#define VORN_TESTS_SUPPORT_MODEL_SCRIPT_H_

#include <cstdint>
#include <string>
#include <vector>

namespace support {

/// One model input or output as the runtime reports it; sizes and strides in bytes.
struct TensorSpec {
  std::string name;
  std::vector<int64_t> dims;
  uint32_t type = 0;
  uint64_t stride = 0;
  uint64_t size = 0;
  int32_t format = 0;
};

class ModelScript {
 public:
  ModelScript& Input(const TensorSpec& tensor);
  ModelScript& Output(const TensorSpec& tensor);

  /// The two inputs that every complete model ends with, of these sizes and rows of 16 bytes.
  ModelScript& Scratch(uint64_t taskSize = 32, uint64_t workSize = 64);

  ModelScript& Net(int32_t type) { return Line("net " + std::to_string(type)); }

  /// The n-th calls ("1", "2-5", "3-", "always") of an operation answer `value`.
  ModelScript& Answer(const std::string& operation, const std::string& calls,
                      const std::string& value);

  /// The same, counting only the calls about one index.
  ModelScript& AnswerAt(const std::string& operation, uint64_t index, const std::string& calls,
                        const std::string& value);

  /// Every execution writes the bytes, dense rows of `rowBytes` laid `strideBytes` apart.
  ModelScript& WriteRows(uint64_t output, uint64_t rowBytes, uint64_t strideBytes,
                         const std::string& bytes);

  ModelScript& Line(const std::string& line);

  [[nodiscard]] const std::string& Text() const { return text_; }
  [[nodiscard]] const std::vector<TensorSpec>& inputs() const { return inputs_; }
  [[nodiscard]] const std::vector<TensorSpec>& outputs() const { return outputs_; }

 private:
  std::string text_;
  std::vector<TensorSpec> inputs_;
  std::vector<TensorSpec> outputs_;
};

}  // namespace support

#endif  // VORN_TESTS_SUPPORT_MODEL_SCRIPT_H_
