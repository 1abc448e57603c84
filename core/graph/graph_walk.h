// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <vector>

#include "core/base/errors.h"
#include "core/graph/graph.h"

namespace kestrane {

/// The nodes that one can reach from `start` by going up the inputs for which follow(id, slot) is
/// true, each once and behind all of its own sources: depth first, inputs in order. Needs no stack
/// that grows with the graph. Throws GraphError for a wire from a node that is not there, or a
/// cycle.
template <class Follow>
std::vector<std::uint32_t> upstreamOrder(const Graph& graph, std::uint32_t start, Follow&& follow) {
  enum State : std::uint8_t { unseen, open, done };
  struct Step {
    std::uint32_t id;
    const Node* node;
    std::size_t slot;
  };
  std::vector<std::uint8_t> states(graph.idEnd(), unseen);
  std::vector<std::uint32_t> order;
  std::vector<Step> path{{start, &graph.node(start), 0}};
  states[start] = open;
  while (!path.empty()) {
    Step& step = path.back();
    const Node& node = *step.node;
    if (step.slot == node.sources.size()) {
      states[step.id] = done;
      order.push_back(step.id);
      path.pop_back();
      continue;
    }
    const std::size_t slot = step.slot++;
    const std::uint32_t source = node.sources[slot];
    if (source == 0 || !follow(step.id, slot)) continue;
    const Node& next = graph.node(source);
    if (states[source] == open) {
      throw GraphError("node '" + next.name + "' is part of a cycle: its result feeds itself");
    }
    if (states[source] == unseen) {
      states[source] = open;
      path.push_back({source, &next, 0});
    }
  }
  return order;
}

/// Whether what is wired to the input matters at all; ports of parameters always do.
inline bool isActive(const Node& node, std::size_t slot) {
  return slot + node.paramInputs.size() >= node.sources.size() || node.op->inputActive(slot);
}

/// Whether the node hands its first input on for the context, as far as wiring and types tell.
bool passesFirstInput(const Node& node, const EvalContext& context);

/// The context with the working resolution filled in: the most segments that a Resample node of the
/// graph makes, 8 without one, at most 256.
EvalContext withSegments(const Graph& graph, const EvalContext& context);

/// Puts the values of the scene's controls on the parameters that they key. A parameter without its
/// control, or with one that is no finite number, keeps its own value.
void applyControls(Node& node, const SceneTable* scene);

}  // namespace kestrane
