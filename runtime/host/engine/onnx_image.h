// What a model image says about itself before anything of it is executed.
//
// An image is an ONNX file: one protocol-buffers message. It is walked here, without being kept,
// for properties that somebody wrote into it, which are wanted before it is opened, and for facts
// that the engine does not tell: which dimensions had a name before they got a size, whether a
// weight lies in another file, which an image in memory must never make us open, and which inputs
// say nothing of their shape (the engine shows those like inputs without dimensions).
#ifndef VORN_RUNTIME_HOST_ENGINE_ONNX_IMAGE_H_
#define VORN_RUNTIME_HOST_ENGINE_ONNX_IMAGE_H_

#include <cstddef>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>

namespace vorn::host {

struct OnnxImageFacts {
  bool hasGraph = false;
  bool hasExternalData = false;           ///< anywhere, subgraphs and functions included
  std::set<std::string> shapelessInputs;  ///< of the main graph
};

/// Walks the image. Fails with VORN_ERROR_MODEL where it is no such message: cut short, a length
/// beyond its end, an unknown wire type, or messages nested deeper than any model's.
OnnxImageFacts InspectOnnxImage(std::span<const std::byte> image);

/// The same, and fails also for an image that must not be opened: one that is too large, without a
/// graph, or with weights in other files.
OnnxImageFacts RequireOneFile(std::span<const std::byte> image);

/// The text of a metadata property of the model; nothing if it has none of that name. Fails
/// likewise.
std::optional<std::string> FindMetadata(std::span<const std::byte> image, std::string_view name);

/// Whether the model uses operators of that domain. Fails likewise.
bool ImportsDomain(std::span<const std::byte> image, std::string_view domain);

/// The names of dimensions that inputs and outputs of the main graph leave open. Fails likewise.
std::set<std::string> OpenDimNames(std::span<const std::byte> image);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_ENGINE_ONNX_IMAGE_H_
