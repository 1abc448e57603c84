// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/session_evaluation.h"

#include <algorithm>
#include <cmath>
#include <set>
#include <string_view>
#include <unordered_map>

#include "core/graph/graph_evaluation.h"
#include "core/session/scalp_follow.h"

namespace kestrane {

namespace {

bool isFiniteValue(const GraphValue& value) {
  if (const auto strands = valueAs<StrandSet>(value)) return strands->extent().finite;
  if (const auto guides = valueAs<GuideSet>(value)) {
    for (const Guide& guide : guides->guides) {
      if (!std::all_of(guide.points.begin(), guide.points.end(),
                       [](Vec3f point) { return isFinite(point); })) {
        return false;
      }
    }
  }
  return true;
}

bool isFiniteNode(const Node& node) {
  return std::all_of(node.cache.outputs.begin(), node.cache.outputs.end(), isFiniteValue);
}

/// Follows what is not finite from a node up to where it was made: the name of the node all of
/// whose sources are finite; empty where the nodes hold no results to tell by.
std::string findCulprit(const Graph& graph, std::uint32_t id) {
  std::set<std::uint32_t> seen;
  for (;;) {
    const Node& node = graph.node(id);
    if (!node.cache.cached || isFiniteNode(node) || !seen.insert(id).second) return {};
    const auto bad =
        std::find_if(node.sources.begin(), node.sources.end(), [&](std::uint32_t source) {
          return source != 0 && graph.node(source).cache.cached &&
                 !isFiniteNode(graph.node(source));
        });
    if (bad == node.sources.end()) return node.name;
    id = *bad;
  }
}

[[noreturn]] void failNonFinite(const GraphDocument& document, bool lean) {
  const std::string what = "points that are not numbers (NaN or infinite)";
  // What nodes hold then is of another evaluation.
  const std::string culprit = lean ? "" : findCulprit(document.graph, document.output);
  const Node& output = document.graph.node(document.output);
  if (culprit.empty() || culprit == output.name) {
    throw GraphError("the strands have " + what + ": a node before the output made them");
  }
  throw GraphError("node '" + culprit + "' makes " + what);
}

StrandSetPtr outputStrands(const GraphDocument& document, const std::vector<GraphValue>& outputs) {
  const GraphValue value = outputs.empty() ? GraphValue() : outputs.front();
  if (const auto strands = valueAs<StrandSet>(value)) return strands;
  if (const auto guides = valueAs<GuideSet>(value)) {
    return std::make_shared<const StrandSet>(strandsFromGuides(*guides));
  }
  throw GraphError("node '" + document.graph.node(document.output).name +
                   "' is the graph's output but gives no strands");
}

/// Without a key of their own, nodes run whole: what they hold counts as of other parameters.
void forgetOwnKeys(Graph& graph) {
  for (auto& [id, node] : graph.nodes()) node.cache.ownKey = 0;
}

/// The node that gave the surface on which strands were grown at rest; 0 where the scene did.
std::uint32_t surfaceSource(const Graph& graph, const ScalpMeshPtr& atRest) {
  for (const auto& [id, node] : graph.nodes()) {
    const bool isSource = node.op->inputs().empty() && node.op->output().type == PortType::mesh;
    if (!isSource || !node.cache.cached || node.cache.outputs.empty()) continue;
    if (valueAs<ScalpMesh>(node.cache.outputs.front()) == atRest) return id;
  }
  return 0;
}

/// What that node gives in the current scene.
ScalpMeshPtr posedSurface(const Node& node, const EvalContext& context) {
  const auto source = freshOperator(*node.op);
  source->adoptState(*node.op);
  return valueAs<ScalpMesh>(source->evaluate(context, {}));
}

/// Carries strands that were grown at rest to the current pose of their surface, where the last
/// result is not just that.
void follow(Graph& graph, const EvaluationInputs& inputs, EvaluatedStrands& grown) {
  const EvaluatedStrands& last = inputs.previous;
  const EvalContext context = contextOf(inputs, *inputs.scene);
  const ScalpMeshPtr atRest = std::move(grown.surface);
  const std::uint32_t source = surfaceSource(graph, atRest);
  grown.pose = source != 0 ? nodeKey(graph, source, context) : context.scene->revision("scalp");
  const bool isLast = grown.revision != 0 && grown.revision == last.revision;
  if (last.strands && isLast && grown.pose == last.pose) {
    grown.strands = last.strands;
    grown.surface = last.surface;
    return;
  }
  grown.surface = source != 0 ? posedSurface(graph.node(source), context) : inputs.scene->scalp;
  if (atRest && grown.surface) {
    grown.strands = carryStrands(grown.strands, *atRest, *grown.surface);
  }
}

/// The bounds, looking again only at what changed where the last result can be built on.
Extent extentOf(const StrandSet& strands, const NodeCache& cache, const EvaluationInputs& inputs) {
  const EvaluatedStrands& last = inputs.previous;
  const bool leadsOn = last.revision != 0 && !inputs.preview &&
                       cache.previousRevision == last.revision && !cache.changes.empty();
  if (leadsOn && cache.changes.front()) {
    return strands.extentAfter(last.extentPieces, *cache.changes.front());
  }
  return strands.extent();
}

void gatherWarnings(GraphDocument& document, const EvalContext& context,
                    std::vector<std::string>& warnings) {
  std::set<std::string> active;
  forEachActiveUpstream(document.graph, document.output, context,
                        [&](const std::string& name, Operator&) {
                          active.insert(name);
                          return true;
                        });
  for (const auto& [id, report] : document.graph.reports) {
    const auto node = document.graph.nodes().find(id);
    if (node == document.graph.nodes().end() || !active.contains(node->second.name)) continue;
    for (const std::string& warning : report.warnings) {
      warnings.push_back("node '" + node->second.name + "': " + warning);
    }
  }
}

}  // namespace

EvalContext contextOf(const EvaluationInputs& inputs, const SessionScene& scene) {
  EvalContext context;
  const float detail = inputs.request.detail;
  context.detail = std::isnan(detail) ? 1.0f : std::clamp(detail, 0.0f, 1.0f);
  context.time = inputs.request.time;
  context.viewport = inputs.request.viewport;
  context.scene = &scene.table;
  context.resources = &scene.resources;
  context.motion = inputs.request.motion;
  context.variant = inputs.request.variant;
  context.preview = inputs.preview;
  return context;
}

EvaluationResult runEvaluation(GraphDocument& document, const EvaluationInputs& inputs) {
  Graph& graph = document.graph;
  const bool follows = inputs.restScene != nullptr;
  const EvalContext context = contextOf(inputs, follows ? *inputs.restScene : *inputs.scene);
  if (!inputs.incremental) forgetOwnKeys(graph);
  const std::uint64_t ranBefore = graph.nodesEvaluated;
  // Strands that are only carried with the scalp are worth keeping.
  const bool lean = inputs.request.lean && !follows;
  EvaluationResult result;
  {
    const GrownValues grown = lean ? evaluateLean(graph, document.output, context)
                                   : evaluateGrown(graph, document.output, context);
    result.strands = outputStrands(document, grown.outputs);
    result.surface = grown.surface;
  }
  const NodeCache& cache = graph.node(document.output).cache;
  if (!lean && !inputs.preview) result.revision = cache.revision;
  if (follows) {
    result.restRan = graph.nodesEvaluated != ranBefore;
    follow(graph, inputs, result);
  }
  result.extent =
      lean || follows ? result.strands->extent() : extentOf(*result.strands, cache, inputs);
  result.extentPieces = result.strands->extentPieces();
  if (!result.extent.finite) failNonFinite(document, lean);
  gatherWarnings(document, context, result.warnings);
  return result;
}

std::vector<int> scalpLevels(const Graph& graph, int renderLevels) {
  std::set<int> levels;
  for (const auto& [id, node] : graph.nodes()) {
    if (node.op->type() != "Scalp") continue;
    const std::string word = node.op->parameters.text("subdivision");
    const int level = word == "matchRender" ? renderLevels : word.size() == 1 ? word[0] - '0' : 0;
    if (level >= 1 && level <= 3) levels.insert(level);
  }
  return {levels.begin(), levels.end()};
}

std::vector<std::pair<std::uint32_t, std::uint32_t>> sameNodes(const Graph& graph,
                                                               const Graph& other) {
  std::unordered_map<std::string_view, std::uint32_t> byName;
  for (const auto& [id, node] : other.nodes()) byName.emplace(node.name, id);
  std::vector<std::pair<std::uint32_t, std::uint32_t>> pairs;
  for (const auto& [id, node] : graph.nodes()) {
    const auto found = byName.find(node.name);
    if (found == byName.end()) continue;
    if (other.node(found->second).op->type() == node.op->type()) {
      pairs.emplace_back(id, found->second);
    }
  }
  return pairs;
}

void adoptNodes(Graph& to, Graph& from) {
  for (const auto& [id, old] : sameNodes(to, from)) {
    Node& node = to.node(id);
    node.op->adoptState(*from.node(old).op);
    node.cache = std::move(from.node(old).cache);
    from.node(old).cache = {};
    if (const auto report = from.reports.find(old); report != from.reports.end()) {
      to.reports[id] = std::move(report->second);
    }
  }
  to.nodesEvaluated = from.nodesEvaluated;
  to.nodesIncremental = from.nodesIncremental;
}

}  // namespace kestrane
