// Cutting short, exposing and rounding, in this order: what is cut away needs no range, and what is
// exposed is the tensor as the nodes behind it read it, under its own name.
#include "host/graph/graph_edits.h"

#include <algorithm>
#include <map>
#include <set>
#include <string_view>
#include <utility>

#include "host/common/excerpt.h"
#include "host/common/failure.h"
#include "host/graph/dependence.h"
#include "host/graph/nearest_name.h"
#include "host/graph/onnx_graph.h"
#include "host/graph/round_results.h"
#include "host/graph/short_name.h"

namespace vorn::host {
namespace {

constexpr size_t kMostNamed = 3;  // of what is left out

using Facts = std::map<std::string_view, const ResultFacts*>;

/// Results of the main graph's nodes, in its order.
std::vector<std::string_view> ResultsOf(const OnnxGraph& graph) {
  std::vector<std::string_view> names;
  for (const GraphNode& node : graph.nodes) {
    for (const std::string_view name : node.outputs) {
      if (!name.empty()) names.push_back(name);
    }
  }
  return names;
}

/// Refuses a name that no node of the main graph has for a result, with what it is instead.
void RequireResult(const OnnxGraph& graph, const char* key, const std::string& name) {
  if (graph.ProducerOf(name) != nullptr) return;
  const auto refuse = [&](const auto&... why) {
    throw Failure(VORN_ERROR_MODEL, "'", key, "' names '", Excerpt(name), "', ", why...);
  };
  if (graph.IsInitializer(name)) {
    refuse("which the model carries as a constant; name the result of a node");
  }
  if (graph.IsInput(name)) refuse("which is an input of the model; name the result of a node");
  if (const GraphNode* node = graph.BodyWith(name)) {
    refuse("which is inside a body of the ", Excerpt(node->op), " node '",
           Excerpt(node->outputs.empty() ? node->name : node->outputs[0]),
           "'; only results of the main graph can be given");
  }
  const std::string_view nearest = NearestName(name, ResultsOf(graph));
  refuse("but the model has no tensor of that name", nearest.empty() ? "" : "; the nearest is '",
         Excerpt(nearest), nearest.empty() ? "" : "'");
}

void RequireResults(const OnnxGraph& graph, const char* key,
                    const std::vector<std::string>& names) {
  std::set<std::string_view> seen;
  for (const std::string& name : names) {
    RequireResult(graph, key, name);
    if (seen.insert(name).second) continue;
    throw Failure(VORN_ERROR_MODEL, "'", key, "' names '", Excerpt(name), "' twice; leave one");
  }
}

/// Which nodes lead to the names.
std::vector<bool> NodesFor(const OnnxGraph& graph, std::vector<std::string_view> names) {
  std::vector<bool> leads(graph.nodes.size());
  while (!names.empty()) {
    const GraphNode* node = graph.ProducerOf(names.back());
    names.pop_back();
    if (node == nullptr || leads[static_cast<size_t>(node - graph.nodes.data())]) continue;
    leads[static_cast<size_t>(node - graph.nodes.data())] = true;
    names.insert(names.end(), node->inputs.begin(), node->inputs.end());
    names.insert(names.end(), node->captured.begin(), node->captured.end());
  }
  return leads;
}

/// Returns what was done.
std::string Cut(OnnxGraph& graph, const ModelSettings& settings, EditedModel& edited) {
  RequireResults(graph, "until", settings.until);
  std::vector<std::string_view> outputs(settings.until.begin(), settings.until.end());
  // What is fed back is no caller's business; without it the next frame could not be run.
  for (const auto& [input, output] : settings.states) {
    const bool isThere = std::ranges::find(outputs, output) != outputs.end();
    if (!isThere && std::ranges::find(graph.outputs, output) != graph.outputs.end()) {
      outputs.emplace_back(output);
    }
  }
  for (const std::string_view output : graph.outputs) {
    if (std::ranges::find(outputs, output) == outputs.end())
      edited.goneOutputs.emplace_back(output);
  }
  graph.outputs = std::move(outputs);
  const size_t count = graph.nodes.size();
  graph.KeepNodes(NodesFor(graph, graph.outputs));
  std::string names;
  for (const std::string& name : settings.until) {
    names += Join(names.empty() ? "" : ", ", '\'', Excerpt(name), '\'');
  }
  return Join("cut at ", names, ": ", graph.nodes.size(), " of ", Counted(count, "node"),
              graph.nodes.size() == 1 ? " is left" : " are left");
}

/// Why "all" leaves a result out; empty if it does not.
std::string WhyLeftOut(const ResultFacts* facts, const Dependence& dependence,
                       std::string_view name) {
  if (facts == nullptr) return "is unknown to the execution library";
  if (!facts->type) return facts->cannotBeGiven;
  if (!facts->isShapeKnown && dependence.shapeOnData.contains(name)) {
    return "may have another shape for other data; name it in a list, with 'outputDims'";
  }
  if (!facts->isShapeKnown && dependence.isSteeredByData) {
    return "has a shape that only a trial could tell, which may fail in this model; name it in a "
           "list";
  }
  return "";
}

/// Outputs that a caller sees: states are fed back and hidden, unless `until` asks for them.
std::set<std::string_view> GivenOutputs(const OnnxGraph& graph, const ModelSettings& settings) {
  std::set<std::string_view> given(graph.outputs.begin(), graph.outputs.end());
  for (const auto& [input, output] : settings.states) given.erase(output);
  given.insert(settings.until.begin(), settings.until.end());
  return given;
}

std::string ExposeAll(const OnnxGraph& graph, const Facts& facts,
                      const std::set<std::string_view>& given,
                      std::vector<std::string_view>& exposed) {
  const Dependence dependence = DependenceOf(graph);
  size_t count = 0;
  std::vector<std::string> leftOut;
  for (const std::string_view name : ResultsOf(graph)) {
    // Numbers that are the same whatever the inputs hold are as good as weights.
    if (given.contains(name) || !dependence.onData.contains(name)) continue;
    const auto known = facts.find(name);
    const std::string why =
        WhyLeftOut(known == facts.end() ? nullptr : known->second, dependence, name);
    if (!why.empty()) {
      leftOut.push_back(Join('\'', Excerpt(name), "' ", why));
      continue;
    }
    exposed.push_back(name);
    ++count;
  }
  std::string done = Join("exposed ", Counted(count, "tensor"));
  if (leftOut.empty()) return done;
  done += Join(" and left out ", leftOut.size(), ": ");
  for (size_t i = 0; i < std::min(leftOut.size(), kMostNamed); ++i) {
    done += (i == 0 ? "" : "; ") + leftOut[i];
  }
  return done + (leftOut.size() > kMostNamed ? "; ..." : "");
}

/// Finds what is to be given beside the outputs that are.
std::string Expose(const OnnxGraph& graph, const ModelSettings& settings, const Facts& facts,
                   std::vector<std::string_view>& exposed) {
  const std::set<std::string_view> given = GivenOutputs(graph, settings);
  if (settings.exposeAll) return ExposeAll(graph, facts, given, exposed);
  RequireResults(graph, "expose", settings.expose);
  const std::set<std::string_view> wanted(settings.expose.begin(), settings.expose.end());
  size_t count = 0;
  for (const std::string_view name : ResultsOf(graph)) {
    if (!wanted.contains(name) || given.contains(name)) continue;
    exposed.push_back(name);
    ++count;
  }
  return Join("exposed ", Counted(count, "tensor"));
}

/// The outputs with those that are exposed. What is fed back is hidden by its name: a state that is
/// to be given as well is fed back by another one.
void GiveOutputs(OnnxGraph& graph, const ModelSettings& settings,
                 const std::vector<std::string_view>& exposed, EditedModel& edited) {
  const std::set<std::string_view> cut(settings.until.begin(), settings.until.end());
  for (const auto& [input, output] : settings.states) {
    const bool isExposed = std::ranges::find(exposed, output) != exposed.end();
    const GraphNode* node = graph.ProducerOf(output);
    if ((!isExposed && !cut.contains(output)) || node == nullptr) continue;
    const std::string_view fedBack = graph.NewName(output + "/state");
    // What is exposed comes behind the others; what 'until' names stands where it is.
    const auto place = std::ranges::find(graph.outputs, output);
    if (isExposed && place != graph.outputs.end()) {
      *place = fedBack;
    } else {
      graph.outputs.push_back(fedBack);
    }
    graph.nodes[static_cast<size_t>(node - graph.nodes.data())].behind.push_back(
        MessageWriter().Text(1, output).Text(2, fedBack).Text(4, "Identity").Take());
    edited.states.emplace(input, fedBack);
  }
  graph.outputs.insert(graph.outputs.end(), exposed.begin(), exposed.end());
}

/// Outputs that nobody could write a dump of. The model's own ones, too: whoever asks for what is
/// inside wants to see it.
std::map<std::string, std::string> ShortNames(const OnnxGraph& graph, const ModelSettings& settings,
                                              const EditedModel& edited) {
  std::set<std::string_view> outputs(graph.outputs.begin(), graph.outputs.end());
  for (const auto& [input, output] : settings.states) {
    const auto fedBack = edited.states.find(input);
    outputs.erase(fedBack == edited.states.end() ? output : fedBack->second);
  }
  std::map<std::string, std::string> names;
  for (const std::string_view output : outputs) {
    std::string name = ShortName(output);
    if (name != output && !outputs.contains(name)) names.emplace(output, std::move(name));
  }
  return names;
}

std::string Round(OnnxGraph& graph, const ModelSettings& settings, const Facts& facts,
                  const std::vector<std::string_view>& exposed) {
  const auto isFloat = [&](std::string_view name) {
    const auto found = facts.find(name);
    return found != facts.end() && found->second->type == VORN_FLOAT32;
  };
  return RoundGraph(graph, settings, isFloat, {exposed.begin(), exposed.end()});
}

/// What the engine knows of every result.
std::vector<ResultFacts> Tell(const OnnxGraph& graph, Bytes image, const TellResults& tell) {
  OnnxGraph whole(image);
  whole.KeepNodes(NodesFor(whole, ResultsOf(graph)));
  whole.outputs = ResultsOf(whole);
  const std::string wholeImage = whole.Image();
  return tell(BytesOf(wholeImage));
}

}  // namespace

bool AreEditsWanted(const ModelSettings& settings) {
  return settings.exposeAll || !settings.expose.empty() || !settings.until.empty() ||
         settings.round != Rounding::kNone;
}

EditedModel EditModel(Bytes image, const ModelSettings& settings, const TellResults& tell) {
  EditedModel edited;
  OnnxGraph graph(image);
  std::vector<std::string> done;
  if (!settings.until.empty()) done.push_back(Cut(graph, settings, edited));
  const bool isRounded = settings.round != Rounding::kNone;
  std::vector<ResultFacts> told;
  if (settings.exposeAll || isRounded) told = Tell(graph, image, tell);
  Facts facts;
  for (const ResultFacts& one : told) facts.emplace(one.name, &one);
  // Looked for before nodes are put in, which are nobody's affair, and given behind: what is
  // rounded is the same whatever is looked at. Tensors keep their names.
  std::vector<std::string_view> exposed;
  std::string exposedText;
  if (settings.exposeAll || !settings.expose.empty()) {
    exposedText = Expose(graph, settings, facts, exposed);
  }
  if (isRounded) done.push_back(Round(graph, settings, facts, exposed));
  if (!exposedText.empty()) done.push_back(exposedText);
  GiveOutputs(graph, settings, exposed, edited);
  const bool isLookedInto = !settings.until.empty() || !exposedText.empty();
  if (isLookedInto) edited.shortNames = ShortNames(graph, settings, edited);
  for (const std::string& one : done) edited.done += (edited.done.empty() ? "" : "; ") + one;
  edited.image = graph.Image();
  return edited;
}

}  // namespace vorn::host
