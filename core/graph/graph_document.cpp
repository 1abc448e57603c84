// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph_document.h"

#include <utility>
#include <vector>

#include "core/base/json.h"

namespace kestrane {

namespace {

constexpr std::string_view defaultGraph = R"({
  "version": 1,
  "nodes": [
    {"name": "scalp", "type": "Scalp"},
    {"name": "guides", "type": "Guides"},
    {"name": "scatter", "type": "Scatter"},
    {"name": "interpolate", "type": "Interpolate"},
    {"name": "length", "type": "Length", "params": {"fraction": 1.0, "trimMin": 0.0, "trimMax": 0.2}},
    {"name": "noise", "type": "Noise"},
    {"name": "color", "type": "HairColor"},
    {"name": "width", "type": "Width"},
    {"name": "resample", "type": "Resample"},
    {"name": "output", "type": "Output"}
  ],
  "connections": [
    {"from": "scalp", "to": "scatter", "input": "scalp"},
    {"from": "scatter", "to": "interpolate", "input": "strands"},
    {"from": "guides", "to": "interpolate", "input": "guides"},
    {"from": "scalp", "to": "interpolate", "input": "scalp"},
    {"from": "interpolate", "to": "length", "input": "strands"},
    {"from": "length", "to": "noise", "input": "strands"},
    {"from": "noise", "to": "color", "input": "strands"},
    {"from": "color", "to": "width", "input": "strands"},
    {"from": "width", "to": "resample", "input": "strands"},
    {"from": "resample", "to": "output", "input": "strands"}
  ],
  "output": "output"
})";

Json controlsJson(const Node& node) {
  Json json = Json::object();
  for (const auto& [name, controls] : node.paramControls) {
    json[name] = controls.size() == 1 ? Json(controls.front()) : Json(controls);
  }
  return json;
}

Json nodeJson(const Node& node) {
  Json json = Json::object();
  json["name"] = node.name;
  json["type"] = node.op->type();
  json["version"] = node.op->nodeVersion > 0 ? node.op->nodeVersion : node.op->version();
  Json params = Json::object();
  for (const auto& [name, value] : node.op->parameters.values()) {
    params[name] = paramValueToJson(value);
  }
  json["params"] = std::move(params);
  if (Json definition = node.op->definition(); !definition.is_null()) {
    json["definition"] = std::move(definition);
  }
  if (!node.paramInputs.empty()) json["paramInputs"] = node.paramInputs;
  if (!node.paramControls.empty()) json["paramControls"] = controlsJson(node);
  if (node.bypass) json["bypass"] = true;
  if (node.evaluation != NodeEvaluation::always) {
    json["evaluation"] = nodeEvaluationWord(node.evaluation);
  }
  Json ui = Json::object();
  ui["x"] = node.uiX;
  ui["y"] = node.uiY;
  json["ui"] = std::move(ui);
  return json;
}

void appendConnections(const Graph& graph, const Node& node, Json& connections) {
  const std::vector<PortSpec> ports = graph.inputPorts(node);
  for (std::size_t slot = 0; slot < ports.size() && slot < node.sources.size(); ++slot) {
    if (node.sources[slot] == 0) continue;
    const Node& source = graph.node(node.sources[slot]);
    Json json = Json::object();
    json["from"] = source.name;
    json["to"] = node.name;
    json["input"] = ports[slot].name;
    const std::vector<PortSpec> outputs = source.op->outputs();
    if (outputs.size() > 1) json["output"] = outputs.at(node.sourceOutputs[slot]).name;
    connections.push_back(std::move(json));
  }
}

}  // namespace

Json graphToJson(const GraphDocument& document) {
  Json nodes = Json::array(), connections = Json::array();
  for (const auto& [id, node] : document.graph.nodes()) {
    nodes.push_back(nodeJson(node));
    appendConnections(document.graph, node, connections);
  }
  Json json = Json::object();
  json["version"] = graphVersion;
  json["nodes"] = std::move(nodes);
  json["connections"] = std::move(connections);
  // A document that holds no graph yet has no output to name.
  if (document.output != 0) json["output"] = document.graph.node(document.output).name;
  if (!document.backdrops.empty()) json["backdrops"] = parseJson(document.backdrops);
  return json;
}

GraphDocument copyGraph(const GraphDocument& document) {
  GraphDocument copy;
  copy.output = document.output;
  copy.backdrops = document.backdrops;
  copy.graph = document.graph.copyNodes();
  return copy;
}

std::string_view defaultGraphText() {
  return defaultGraph;
}

}  // namespace kestrane
