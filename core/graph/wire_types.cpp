// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/wire_types.h"

#include <string>

#include "core/base/errors.h"

namespace kestrane {

namespace {

PortType declaredOutput(const Node& node, std::size_t output) {
  const std::vector<PortSpec> outputs = node.op->outputs();
  return output < outputs.size() ? outputs[output].type : PortType::curves;
}

/// Whether what comes into the first input comes out of Curves outputs again.
bool handsFirstInputOn(const Node& node) {
  const std::vector<PortSpec> inputs = node.op->inputs();
  return !inputs.empty() && carriesCurves(inputs[0].type);
}

}  // namespace

WireTypes::WireTypes(const Graph& graph)
    : graph_(graph), states_(graph.idEnd(), unknown), carried_(graph.idEnd(), PortType::curves) {}

PortType WireTypes::output(std::uint32_t id, std::size_t output) {
  const PortType type = declaredOutput(graph_.node(id), output);
  return type == PortType::curves ? carried(id) : type;
}

PortType WireTypes::carried(std::uint32_t id) {
  std::vector<std::uint32_t> path;
  PortType type = PortType::curves;
  // A graph has no cycles, but its wires are open to all.
  for (; states_[id] != open; id = graph_.node(id).sources[0]) {
    if (states_[id] == known) {
      type = carried_[id];
      break;
    }
    states_[id] = open;
    path.push_back(id);
    const Node& node = graph_.node(id);
    if (node.sources.empty() || node.sources[0] == 0 || !handsFirstInputOn(node)) break;
    type = declaredOutput(graph_.node(node.sources[0]), node.sourceOutputs[0]);
    if (type != PortType::curves) break;
  }
  for (const std::uint32_t passed : path) {
    states_[passed] = known;
    carried_[passed] = type;
  }
  return type;
}

void WireTypes::assumeFirstInput(std::uint32_t id, PortType type) {
  if (!handsFirstInputOn(graph_.node(id))) return;
  states_[id] = known;
  carried_[id] = type;
}

void WireTypes::check(std::uint32_t from, std::size_t output, PortType input) {
  // A Curves input takes whatever a Curves output carries, which saves the walk up to find it.
  const PortType declared = declaredOutput(graph_.node(from), output);
  if (declared == PortType::curves && input == PortType::curves) return;
  const PortType given = declared == PortType::curves ? carried(from) : declared;
  if (!portsFit(given, input)) {
    throw GraphError("type mismatch: " + std::string(portTypeName(given)) + " -> " +
                     std::string(portTypeName(input)));
  }
}

void WireTypes::checkAll() {
  graph_.forEachNode([this](std::uint32_t, const Node& node) {
    const std::vector<PortSpec> ports = graph_.inputPorts(node);
    for (std::size_t slot = 0; slot < ports.size() && slot < node.sources.size(); ++slot) {
      if (node.sources[slot] == 0) continue;
      check(node.sources[slot], node.sourceOutputs[slot], ports[slot].type);
    }
  });
}

}  // namespace kestrane
