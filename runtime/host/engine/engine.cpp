// What may be opened, and the library behind it.
#include "host/engine/engine.h"

#include <onnxruntime_cxx_api.h>

#include <set>
#include <utility>

#include "host/common/failure.h"
#include "host/engine/engine_cause.h"
#include "host/engine/engine_environment.h"
#include "host/engine/engine_library.h"
#include "host/engine/engine_session.h"
#include "host/engine/onnx_image.h"

namespace vorn::host {
namespace {

class OrtEngine : public Engine {
 public:
  explicit OrtEngine(std::shared_ptr<Ort::Env> environment)
      : environment_(std::move(environment)) {}

  std::unique_ptr<Session> Open(std::span<const std::byte> image, const Config& config) override {
    return OpenSession(environment_, image, config, RequireOneFile(image).shapelessInputs);
  }

  std::vector<ResultFacts> TellOutputs(std::span<const std::byte> image,
                                       const Config& config) override {
    static_cast<void>(RequireOneFile(image));
    return TellOutputsOf(*environment_, image, config);
  }

 private:
  std::shared_ptr<Ort::Env> environment_;
};

}  // namespace

std::unique_ptr<Engine> CreateEngine() {
  // Once: an execution of the runtime before may still read the table when the next one comes up.
  [[maybe_unused]] static const bool hasTable = (Ort::InitApi(LoadEngineLibrary()), true);
  try {
    return std::make_unique<OrtEngine>(SharedEnvironment());
  } catch (const Ort::Exception& e) {
    throw Failure(VORN_ERROR_INTERNAL, "the execution library does not come up (", CauseOf(e), ")");
  }
}

}  // namespace vorn::host
