// What the settings of a model ask to have changed in its graph before it is opened.
#ifndef VORN_RUNTIME_HOST_GRAPH_GRAPH_EDITS_H_
#define VORN_RUNTIME_HOST_GRAPH_GRAPH_EDITS_H_

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/config/model_settings.h"
#include "host/graph/wire.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// What the engine knows of a result once it has opened the model.
struct ResultFacts {
  std::string name;
  std::optional<vorn_data_type> type;  ///< of a dense tensor that can be given
  std::string cannotBeGiven;           ///< why, where there is none: "is a sequence"
  bool isShapeKnown = false;           ///< every dimension has a size, or is an input's
};

/// Opens an image and tells its outputs.
using TellResults = std::function<std::vector<ResultFacts>(Bytes image)>;

struct EditedModel {
  std::string image;
  std::string done;                      ///< for the log: "exposed 41 tensors; cut at 'y': ..."
  std::vector<std::string> goneOutputs;  ///< of the model as it was
  /// State inputs that are fed from other outputs than the settings say.
  std::map<std::string, std::string> states;
  /// Of the outputs, what those are called whose names are too long for the files of dumps: short
  /// name by name, in no model with an output of that name.
  std::map<std::string, std::string> shortNames;
};

/// Whether the settings ask for any change.
bool AreEditsWanted(const ModelSettings& settings);

/// The model with the changes: cut short, with further outputs, rounded. `tell` is called
/// where types have to be known, with a model that has every result of a node as an output. Fails
/// with VORN_ERROR_MODEL for names that the model does not have, or that cannot be what they are to
/// be.
EditedModel EditModel(Bytes image, const ModelSettings& settings, const TellResults& tell);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_GRAPH_EDITS_H_
