// Tensors as the test folders of ONNX hold them: one TensorProto message a file.
//
//     field  1 dims   2 data_type   8 name   9 raw_data (little-endian)
//            4 float_data   5 int32_data   7 int64_data   10 double_data   11 uint64_data
//            13 external_data   14 data_location
//
// A few fields of one message are read here, at their places in the file, since a library would
// hold all of it in memory and ends at 2 GiB.
#ifndef VORN_KIT_TENSOR_ONNX_TENSOR_H_
#define VORN_KIT_TENSOR_ONNX_TENSOR_H_

#include <string>

#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {

/// Throws a Fault of kInput that names the file: no such message, of texts or complex numbers, with
/// values in another file, with fewer or more values than its shape.
[[nodiscard]] StoredTensor OpenOnnxTensor(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_ONNX_TENSOR_H_
