// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph_evaluation.h"

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "core/base/errors.h"
#include "core/graph/expression_environment.h"
#include "core/graph/graph_keys.h"
#include "core/graph/graph_walk.h"
#include "core/graph/node_run.h"
#include "core/graph/result_release.h"

namespace kestrane {

namespace {

std::atomic<bool> incrementalSwitch = true;
std::atomic<bool> diffSwitch = true;
std::atomic<bool> verifySwitch = false;
std::atomic<std::uint64_t> lastRevision = 0;

/// The surface that the scene gives strands which follow no Scalp node.
ScalpMeshPtr sceneSurface(const SceneTable* scene) {
  const SceneInput* input = scene ? scene->find("scalp") : nullptr;
  if (input == nullptr) return nullptr;
  if (const auto mesh = valueAs<SceneMesh>(input->value)) return mesh->mesh;
  return valueAs<ScalpMesh>(input->value);
}

bool isScene(const GraphValue& value) {
  return valueAs<GuideSet>(value) || valueAs<ScalpMesh>(value) || valueAs<SceneMesh>(value);
}

/// The strands that the channel `_preview` marks; sets without it as they are.
GraphValue previewed(const GraphValue& value) {
  const auto strands = valueAs<StrandSet>(value);
  const Array<float>* marks = strands ? strands->strandChannel("_preview") : nullptr;
  if (marks == nullptr) return value;
  std::vector<std::uint32_t> kept;
  for (std::size_t i = 0; i < marks->size(); ++i) {
    if ((*marks)[i] > 0.0f) kept.push_back(static_cast<std::uint32_t>(i));
  }
  if (kept.size() == strands->strandCount()) return value;
  return std::make_shared<const StrandSet>(strands->subset(kept));
}

/// Graphs inside a graph share what the outer one has found.
EvalContext withFound(EvalContext context) {
  if (!context.found) context.found = std::make_shared<Found>();
  return context;
}

/// One evaluation of one node and all that it needs. Keys tell beforehand which nodes have to run,
/// so these are put in order first and then run one after the other, without recursion.
class Evaluation {
 public:
  Evaluation(Graph& graph, const EvalContext& context, bool lean)
      : graph_(graph),
        context_(withFound(withSegments(graph, context))),
        lean_(lean),
        keys_(graph, context_),
        plans_(graph.idEnd()) {}

  GrownValues run(std::uint32_t target) {
    keys_.findFor(target);
    maker_ = makerOf(target);
    const std::vector<std::uint32_t> order = planFor(target);
    bringBackReports();
    if (lean_) {
      countReaders(order, target);
    } else {
      releaseOldResults(order);
    }
    for (const std::uint32_t id : order) finish(id);
    GrownValues grown{outputsOf(target), surfaceOf(target)};
    if (context_.preview) {
      for (GraphValue& value : grown.outputs) value = previewed(value);
    }
    if (!grown.surface && !keys_.hasSurface(target)) {
      grown.surface = sceneSurface(context_.scene);
    }
    installRest();
    return grown;
  }

 private:
  enum class Way : std::uint8_t { unknown, cached, stored, run };

  /// What happens to one node in this evaluation.
  struct Plan {
    Way way = Way::unknown;
    bool runsWhole = false;
    ReleasedArrays released;
    // The low-memory form's result, kept until its last reader has it.
    std::uint32_t readers = 0;
    std::vector<GraphValue> outputs;
    ScalpMeshPtr surface;
  };

  /// The nodes that take part, each behind its sources. What has a result already needs none.
  std::vector<std::uint32_t> planFor(std::uint32_t target) {
    decide(target);
    return upstreamOrder(graph_, target, [this](std::uint32_t id, std::size_t slot) {
      const Node& node = graph_.node(id);
      if (plans_[id].way != Way::run || !reads(id, node, slot)) return false;
      decide(node.sources[slot]);
      return true;
    });
  }

  /// Whether the node needs what is wired to the input. One that hands its first input on needs no
  /// other, nor has its key any other: should nothing come, it runs as if no other were wired.
  bool reads(std::uint32_t id, const Node& node, std::size_t slot) const {
    if (node.sources[slot] == 0) return false;
    return keys_.passesFirstInput(id) ? slot == 0 : isActive(node, slot);
  }

  void decide(std::uint32_t id) {
    Plan& plan = plans_[id];
    if (plan.way != Way::unknown) return;
    const NodeCache& cache = graph_.node(id).cache;
    if (cache.cached && cache.cacheKey == keys_.key(id)) {
      plan.way = Way::cached;
    } else {
      plan.way = graph_.resultCache.count(keys_.key(id)) ? Way::stored : Way::run;
    }
  }

  /// An evaluation in the low-memory form or a detached one has left reports of results that nodes
  /// do not hold.
  void bringBackReports() {
    for (const auto& [id, node] : graph_.nodes()) {
      if (node.cache.cached) graph_.reports[id] = node.cache.report;
    }
  }

  void countReaders(const std::vector<std::uint32_t>& order, std::uint32_t target) {
    ++plans_[target].readers;
    for (const std::uint32_t id : order) {
      if (plans_[id].way == Way::run) forEachSource(id, [&](Plan& source) { ++source.readers; });
    }
  }

  template <class Use>
  void forEachSource(std::uint32_t id, Use&& use) {
    const Node& node = graph_.node(id);
    for (std::size_t slot = 0; slot < node.sources.size(); ++slot) {
      if (reads(id, node, slot)) use(plans_[node.sources[slot]]);
    }
  }

  /// From the target up, so that a result has let go before the one that it came from is looked at.
  void releaseOldResults(const std::vector<std::uint32_t>& order) {
    if (!incrementalEvaluation() || verifyIncremental()) return;
    for (const std::uint32_t id : order) plans_[id].runsWhole = willRunWhole(id);
    for (auto id = order.rbegin(); id != order.rend(); ++id) {
      Node& node = graph_.node(*id);
      if (plans_[*id].way != Way::run || node.sources.empty() || !reads(*id, node, 0)) continue;
      const std::uint32_t source = node.sources[0];
      // One that runs whole writes new arrays and has no use for the old ones; should it fail,
      // which a parameter just edited often makes it do, the results below it are still there.
      if (plans_[source].way != Way::run || plans_[source].runsWhole) continue;
      const NodeCache& before = graph_.node(source).cache;
      const std::uint64_t output = node.sourceOutputs[0];
      if (!before.cached || output >= before.outputs.size()) continue;
      plans_[*id].released = releaseShared(node, before.outputs[output]);
    }
  }

  /// Whether the node surely makes its result whole: it changed itself, or what it gets will be
  /// other strands without a word on which of them. Of other changed inputs (guides, meshes) an
  /// operator may find out itself. Sources come before their readers.
  bool willRunWhole(std::uint32_t id) const {
    const Node& node = graph_.node(id);
    if (plans_[id].way != Way::run) return false;
    if (!node.cache.cached || node.cache.ownKey != keys_.ownKey(id)) return true;
    for (std::size_t slot = 0; slot < node.sources.size(); ++slot) {
      if (!reads(id, node, slot) || !plans_[node.sources[slot]].runsWhole) continue;
      const NodeCache& source = graph_.node(node.sources[slot]).cache;
      const std::uint64_t output = node.sourceOutputs[slot];
      if (output < source.outputs.size() && valueAs<StrandSet>(source.outputs[output])) return true;
    }
    return false;
  }

  void finish(std::uint32_t id) {
    Node& node = graph_.node(id);
    switch (plans_[id].way) {
      case Way::run:
        runNode(id, node);
        return;
      case Way::stored:
        takeStored(id, node);
        break;
      default:
        if (lean_) {
          plans_[id].outputs = node.cache.outputs;
          plans_[id].surface = node.cache.surface;
        }
    }
    if (node.op->refreshesOnHit()) refresh(id, node);
  }

  void takeStored(std::uint32_t id, Node& node) {
    const NodeCache& stored = graph_.resultCache.at(keys_.key(id)).cache;
    if (lean_) {
      graph_.reports[id] = stored.report;
      plans_[id].outputs = stored.outputs;
      plans_[id].surface = stored.surface;
    } else {
      install(id, node, stored);
    }
  }

  void install(std::uint32_t id, Node& node, const NodeCache& stored) {
    node.cache = stored;
    node.cache.cacheKey = keys_.key(id);
    node.cache.cached = true;
    graph_.reports[id] = node.cache.report;
  }

  /// The scene object behind a result may be another one although nothing that counts has changed.
  void refresh(std::uint32_t id, Node& node) {
    NodeInputs inputs;
    inputs.values.resize(node.op->inputs().size());
    NodeResult result = NodeRun(node, context_, std::move(inputs)).run();
    const ScalpMeshPtr surface = ownSurface(node, result.outputs);
    std::vector<GraphValue>& outputs = lean_ ? plans_[id].outputs : node.cache.outputs;
    outputs = std::move(result.outputs);
    if (surface) (lean_ ? plans_[id].surface : node.cache.surface) = surface;
  }

  void runNode(std::uint32_t id, Node& node) {
    const bool wasReleased = plans_[id].released.any();
    NodeInputs inputs;
    std::vector<std::uint64_t> revisions;
    gather(id, node, inputs, revisions);
    const bool hadResult = inputs.hadResult;
    std::vector<GraphValue> sceneInputs = inputs.values;
    for (GraphValue& value : sceneInputs) {
      if (!isScene(value)) value = {};
    }
    EvalContext context = context_;
    const ScalpMeshPtr above = surfaceAbove(id, node, sceneInputs);
    context.wantsExtent = id == maker_;
    context.surface = followsScalp(id, node) ? above : sceneSurface(context_.scene);

    NodeResult result = NodeRun(node, context, std::move(inputs)).run();
    ++graph_.nodesEvaluated;
    if (result.incremental) ++graph_.nodesIncremental;
    graph_.reports[id] = result.report;
    const ScalpMeshPtr own = ownSurface(node, result.outputs);
    if (lean_) {
      forEachSource(id, [](Plan& source) {
        if (--source.readers == 0) source.outputs.clear();
      });
      plans_[id].surface = own ? own : above;
      if (plans_[id].readers > 0) plans_[id].outputs = std::move(result.outputs);
      return;
    }

    NodeCache& cache = node.cache;
    // Of a result that was let go, only the changes tell whether the new one is another.
    const bool same = hadResult && (wasReleased ? result.changesFollowInput && isQuiet(result)
                                                : cache.outputs == result.outputs);
    if (!same) {
      cache.previousRevision = hadResult ? cache.revision : 0;
      cache.changes = std::move(result.changes);
      cache.revision = ++lastRevision;
    }
    cache.cacheKey = keys_.key(id);
    cache.ownKey = keys_.ownKey(id);
    cache.outputs = std::move(result.outputs);
    cache.changesFollowInput = result.changesFollowInput;
    cache.inputRevisions = std::move(revisions);
    cache.inputOutputs = node.sourceOutputs;
    cache.report = std::move(result.report);
    cache.inputs = std::move(sceneInputs);
    cache.surface = own ? own : above;
    cache.cached = true;
  }

  static bool isQuiet(const NodeResult& result) {
    return result.changes.size() == 1 && result.changes[0] && result.changes[0]->empty();
  }

  void gather(std::uint32_t id, const Node& node, NodeInputs& inputs,
              std::vector<std::uint64_t>& revisions) {
    const std::size_t ports = node.op->inputs().size() + node.paramInputs.size();
    inputs.bypassed = isBypassed(node, context_);
    inputs.keepsResult = !lean_;
    inputs.released = std::move(plans_[id].released);
    inputs.hadResult = node.cache.cached || inputs.released.any();
    inputs.sameOwnKey = node.cache.ownKey == keys_.ownKey(id);
    inputs.values.resize(ports);
    if (!lean_) {
      inputs.changes.assign(ports, noStrandChanges());
      revisions.assign(ports, 0);
    }
    for (std::size_t slot = 0; slot < ports && slot < node.sources.size(); ++slot) {
      if (!reads(id, node, slot)) continue;
      const std::uint32_t source = node.sources[slot];
      const std::uint64_t output = node.sourceOutputs[slot];
      const std::vector<GraphValue>& values = outputsOf(source);
      if (output < values.size()) inputs.values[slot] = values[output];
      if (lean_) continue;
      const NodeCache& made = graph_.node(source).cache;
      revisions[slot] = made.revision;
      inputs.changes[slot] =
          inputs.hadResult ? changesSince(node.cache, slot, made, output) : nullptr;
    }
  }

  /// What changed on an input since the node's last result. A list only counts if it leads from
  /// exactly the revision that the node has seen, on the same output.
  static StrandChangesPtr changesSince(const NodeCache& last, std::size_t slot,
                                       const NodeCache& source, std::uint64_t output) {
    if (slot >= last.inputRevisions.size() || slot >= last.inputOutputs.size()) return nullptr;
    if (last.inputOutputs[slot] != output || !source.cached) return nullptr;
    const std::uint64_t seen = last.inputRevisions[slot];
    if (source.revision == seen) return noStrandChanges();
    const bool leadsOn = source.previousRevision == seen && output < source.changes.size();
    return leadsOn ? source.changes[output] : nullptr;
  }

  /// The node whose strands the target hands on.
  std::uint32_t makerOf(std::uint32_t target) const {
    for (;;) {
      const Node& node = graph_.node(target);
      const bool handsOn = node.op->type() == "Output" || keys_.passesFirstInput(target);
      if (!handsOn || node.sources.empty() || node.sources[0] == 0) return target;
      target = node.sources[0];
    }
  }

  bool followsScalp(std::uint32_t id, const Node& node) const {
    for (std::size_t slot = 0; slot < node.sources.size(); ++slot) {
      if (!reads(id, node, slot)) continue;
      if (growsOn(node, slot) || keys_.hasSurface(node.sources[slot])) return true;
    }
    return false;
  }

  /// Of the first input that has one. `inputs` holds the meshes on the inputs.
  ScalpMeshPtr surfaceAbove(std::uint32_t id, const Node& node,
                            const std::vector<GraphValue>& inputs) const {
    for (std::size_t slot = 0; slot < node.sources.size(); ++slot) {
      const std::uint32_t source = node.sources[slot];
      if (!reads(id, node, slot)) continue;
      if (growsOn(node, slot)) {
        if (auto mesh = valueAs<ScalpMesh>(inputs[slot])) return mesh;
      }
      if (!keys_.hasSurface(source)) continue;
      if (surfaceOf(source)) return surfaceOf(source);
    }
    return nullptr;
  }

  static ScalpMeshPtr ownSurface(const Node& node, const std::vector<GraphValue>& outputs) {
    if (outputs.empty() || node.op->type() != "Scalp") return nullptr;
    return valueAs<ScalpMesh>(outputs[0]);
  }

  const std::vector<GraphValue>& outputsOf(std::uint32_t id) const {
    return lean_ ? plans_[id].outputs : graph_.node(id).cache.outputs;
  }

  const ScalpMeshPtr& surfaceOf(std::uint32_t id) const {
    return lean_ ? plans_[id].surface : graph_.node(id).cache.surface;
  }

  /// Gives the results that were made elsewhere to the nodes that this evaluation had no need of.
  void installRest() {
    if (graph_.resultCache.empty()) return;
    for (auto& [id, node] : graph_.nodes()) {
      keys_.findFor(id);
      const std::uint64_t key = keys_.key(id);
      if (node.cache.cached && node.cache.cacheKey == key) continue;
      const auto stored = graph_.resultCache.find(key);
      if (stored != graph_.resultCache.end()) install(id, node, stored->second.cache);
    }
    graph_.resultCache.clear();
  }

  Graph& graph_;
  const EvalContext context_;
  const bool lean_;
  GraphKeys keys_;
  std::vector<Plan> plans_;  // by ID
  std::uint32_t maker_ = 0;
};

}  // namespace

std::vector<GraphValue> evaluate(Graph& graph, std::uint32_t nodeId, const EvalContext& context) {
  return evaluateGrown(graph, nodeId, context).outputs;
}

GrownValues evaluateGrown(Graph& graph, std::uint32_t nodeId, const EvalContext& context) {
  return Evaluation(graph, context, !graph.retainResults).run(nodeId);
}

GrownValues evaluateLean(Graph& graph, std::uint32_t nodeId, const EvalContext& context) {
  return Evaluation(graph, context, true).run(nodeId);
}

void setIncrementalEvaluation(bool on) {
  incrementalSwitch = on;
}
bool incrementalEvaluation() {
  return incrementalSwitch;
}
void setDiffOutputs(bool on) {
  diffSwitch = on;
}
bool diffOutputs() {
  return diffSwitch;
}
void setVerifyIncremental(bool on) {
  verifySwitch = on;
}
bool verifyIncremental() {
  return verifySwitch;
}

}  // namespace kestrane
