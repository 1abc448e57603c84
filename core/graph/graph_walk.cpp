// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph_walk.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "core/graph/graph_evaluation.h"
#include "core/graph/scalar_field.h"

namespace kestrane {

namespace {

std::optional<double> controlValue(const SceneTable* scene, const std::string& control) {
  const SceneInput* input = scene ? scene->find("control:" + control) : nullptr;
  if (input == nullptr || !std::isfinite(input->number)) return std::nullopt;
  return input->number;
}

/// A parameter's value with its controls' numbers in place; nothing without any control.
std::optional<ParamValue> keyedValue(const ParamSpec& spec, const ParamValue& own,
                                     const std::vector<std::string>& controls,
                                     const SceneTable* scene) {
  if (const auto* base = std::get_if<Vec3f>(&spec.defaultValue)) {
    Vec3f vector = std::holds_alternative<Vec3f>(own) ? std::get<Vec3f>(own) : *base;
    bool any = false;
    for (std::size_t axis = 0; axis < 3 && axis < controls.size(); ++axis) {
      const auto number = controlValue(scene, controls[axis]);
      if (!number) continue;
      vector[static_cast<int>(axis)] = static_cast<float>(*number);
      any = true;
    }
    return any ? std::optional<ParamValue>(vector) : std::nullopt;
  }
  if (controls.empty()) return std::nullopt;
  const auto number = controlValue(scene, controls[0]);
  if (!number) return std::nullopt;
  if (kindOf(spec.defaultValue) == ParamKind::boolean) return ParamValue(*number != 0.0);
  return ParamValue(*number);
}

}  // namespace

void applyControls(Node& node, const SceneTable* scene) {
  ParamSet& params = node.op->parameters;
  for (const auto& [name, controls] : node.paramControls) {
    const ParamSpec* spec = params.declarations().find(name);
    if (spec == nullptr) continue;
    const auto set = params.values().find(name);
    const ParamValue& own = set == params.values().end() ? spec->defaultValue : set->second;
    if (auto value = keyedValue(*spec, own, controls, scene)) {
      params.key(name, std::move(*value));
    } else {
      params.unkey(name);
    }
  }
}

bool isBypassed(const Node& node, const EvalContext& context) {
  return node.bypass || (node.evaluation == NodeEvaluation::viewportOnly && !context.viewport) ||
         (node.evaluation == NodeEvaluation::renderOnly && context.viewport);
}

bool passesFirstInput(const Node& node, const EvalContext& context) {
  if (!isBypassed(node, context) || node.sources.empty() || node.sources[0] == 0) return false;
  const std::vector<PortSpec> inputs = node.op->inputs();
  return !inputs.empty() && inputs[0].type == node.op->output().type;
}

EvalContext withSegments(const Graph& graph, const EvalContext& context) {
  EvalContext filled = context;
  if (context.resampleSegments > 0) return filled;
  std::int64_t most = 0;
  for (const auto& entry : graph.nodes()) {
    const Operator& op = *entry.second.op;
    if (op.type() == "Resample") most = std::max(most, op.parameters.integer("segments"));
  }
  filled.resampleSegments =
      most > 0 ? static_cast<std::int32_t>(std::min<std::int64_t>(most, 256)) : 8;
  return filled;
}

bool forEachActiveUpstream(Graph& graph, std::uint32_t nodeId, const EvalContext& context,
                           const ActiveVisitor& visitor, const std::string& prefix) {
  std::vector<bool> seen(graph.idEnd(), false);
  graph.node(nodeId);
  std::vector<std::uint32_t> waiting{nodeId};
  while (!waiting.empty()) {
    const std::uint32_t id = waiting.back();
    waiting.pop_back();
    if (seen[id]) continue;
    seen[id] = true;
    Node& node = graph.node(id);
    // A bypassed node has no say, but what it passes on comes from above it.
    const bool passes = passesFirstInput(node, context);
    if (!passes) {
      const std::string name = prefix + node.name;
      if (!visitor(name, *node.op)) return false;
      const ActiveVisitor inner = [&](const std::string& innerName, Operator& op) {
        return visitor(name + "/" + innerName, op);
      };
      if (!node.op->visitActive(context, inner)) return false;
    }
    for (std::size_t slot = passes ? 1 : node.sources.size(); slot-- > 0;) {
      const std::uint32_t source = node.sources[slot];
      if (source == 0 || !(passes || isActive(node, slot))) continue;
      graph.node(source);
      waiting.push_back(source);
    }
  }
  return true;
}

bool graphReadsTime(Graph& graph, std::uint32_t nodeId, const EvalContext& context) {
  return !forEachActiveUpstream(graph, nodeId, context, [&](const std::string&, Operator& op) {
    return !op.readsTime(context) && !paramsReadTime(op.parameters);
  });
}

}  // namespace kestrane
