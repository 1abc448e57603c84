// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph_keys.h"

#include <bit>
#include <string>

#include "core/base/hash.h"
#include "core/graph/graph_evaluation.h"
#include "core/graph/graph_walk.h"
#include "core/graph/scalar_field.h"

namespace kestrane {

namespace {

// Tags that keep the fields of a key apart.
constexpr std::uint64_t bypassTag = 0xB1FA55;
constexpr std::uint64_t outputTag = 199;
constexpr std::uint64_t versionTag = 0x7E5000;
constexpr std::uint64_t connectedTag = 0x5107;

std::uint64_t foldBytes(std::uint64_t seed, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) seed = hashCombine(seed, (value >> (8 * i)) & 0xFF);
  return seed;
}

/// What every key begins with: results made for another level of detail or resolution never match.
std::uint64_t contextSeed(const EvalContext& context) {
  std::uint64_t seed = foldBytes(0, std::bit_cast<std::uint32_t>(context.detail), 4);
  seed = foldBytes(seed, context.variant, 8);
  return foldBytes(seed, static_cast<std::uint32_t>(context.resampleSegments), 4);
}

}  // namespace

bool growsOn(const Node& node, std::size_t slot) {
  if (slot != 0) return false;
  const std::vector<PortSpec> inputs = node.op->inputs();
  return !inputs.empty() && inputs[0].type == PortType::mesh;
}

GraphKeys::GraphKeys(Graph& graph, const EvalContext& context)
    : graph_(graph), context_(context), seed_(contextSeed(context)), nodes_(graph.idEnd()) {}

void GraphKeys::findFor(std::uint32_t id) {
  const auto follow = [this](std::uint32_t reader, std::size_t slot) {
    Found& found = nodes_[reader];
    if (!found.begun) {
      const Node& node = graph_.node(reader);
      found.passes = kestrane::passesFirstInput(node, context_);
      found.begun = true;
    }
    return !found.done && (!found.passes || slot == 0);
  };
  for (const std::uint32_t next : upstreamOrder(graph_, id, follow)) {
    if (!nodes_[next].done) find(next);
  }
}

void GraphKeys::find(std::uint32_t id) {
  Node& node = graph_.node(id);
  applyControls(node, context_.scene);
  Found& found = nodes_[id];
  const std::string type = node.op->type();

  found.hasSurface = type == "Scalp";
  const std::size_t ports = found.passes ? 1 : node.sources.size();
  for (std::size_t slot = 0; slot < ports && !found.hasSurface; ++slot) {
    const std::uint32_t source = node.sources[slot];
    found.hasSurface = source != 0 && (nodes_[source].hasSurface || growsOn(node, slot)) &&
                       (found.passes || isActive(node, slot));
  }

  std::uint64_t key = hashString(seed_, type);
  key = hashCombine(key, isBypassed(node, context_) ? bypassTag : 0);
  if (found.passes) {
    const std::uint64_t output = node.sourceOutputs[0];
    key = hashCombine(key, output + outputTag);
    found.ownKey = key;
    key = hashCombine(key, nodes_[node.sources[0]].key);
    if (output != 0) key = hashCombine(key, output + outputTag);
  } else {
    key = ownPart(node, key, !found.hasSurface && !node.sources.empty());
    found.ownKey = key;
    for (std::size_t slot = 0; slot < node.sources.size(); ++slot) {
      const std::uint32_t source = node.sources[slot];
      const std::uint64_t output = node.sourceOutputs[slot];
      key = hashCombine(key, source != 0 ? nodes_[source].key : 0);
      if (source != 0 && output != 0) key = hashCombine(key, output + outputTag);
    }
  }
  found.key = key;
  found.done = true;
}

std::uint64_t GraphKeys::ownPart(const Node& node, std::uint64_t key, bool surfaceFromScene) const {
  const Operator& op = *node.op;
  key = hashCombine(key, op.parameters.hash());
  if (op.nodeVersion > 0 && op.nodeVersion != op.version()) {
    key = hashCombine(key, static_cast<std::uint64_t>(op.nodeVersion) + versionTag);
  }
  key = hashCombine(key, op.cacheKey());
  key = hashCombine(key, op.contextKey(context_));
  key = hashCombine(key, paramsContextKey(op.parameters, context_));
  const auto foldSceneInput = [&](const std::string& name) {
    key = hashString(key, name);
    key = hashCombine(key, context_.scene ? context_.scene->revision(name) : 0);
  };
  for (const std::string& name : op.sceneInputs()) foldSceneInput(name);
  // Without a Scalp node above, the surface that strands stand on is the scene's own.
  if (surfaceFromScene) foldSceneInput("scalp");
  key = hashCombine(key, node.sources.size());
  for (std::size_t slot = 0; slot < node.sources.size(); ++slot) {
    key = hashCombine(key, node.sources[slot] != 0 ? node.sourceOutputs[slot] + connectedTag : 0);
  }
  // Which parameter a port feeds, since ports of two parameters may carry the same.
  for (const std::string& name : node.paramInputs) key = hashString(key, name);
  return key;
}

std::uint64_t nodeKey(Graph& graph, std::uint32_t nodeId, const EvalContext& context) {
  const EvalContext filled = withSegments(graph, context);
  GraphKeys keys(graph, filled);
  keys.findFor(nodeId);
  return keys.key(nodeId);
}

}  // namespace kestrane
