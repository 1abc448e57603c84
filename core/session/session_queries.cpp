// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/graph/graph_evaluation.h"
#include "core/session/session_state.h"

namespace kestrane {

namespace {

/// The context that tells which nodes take part, as the last evaluation saw them.
EvalContext lastContext(const std::optional<bool>& viewport) {
  EvalContext context;
  context.viewport = viewport.value_or(true);
  return context;
}

}  // namespace

GroomStats GroomSession::stats() const {
  const std::scoped_lock lock(state_->mutex);
  State& state = *state_;
  GroomStats stats;
  if (state.viewport) stats.view = *state.viewport ? "viewport" : "render";
  if (const StrandSetPtr& strands = state.output.strands) {
    stats.strands = strands->strandCount();
    stats.points = strands->pointCount();
    stats.channels = strands->strandChannelNames();
    for (std::string& name : strands->pointChannelNames()) {
      stats.channels.push_back(std::move(name));
    }
  }
  stats.guides = state.guides ? state.guides->guides().size() : state.inputs.flatGuides().size();
  stats.restEvaluations = state.restEvaluations;
  GraphDocument* graph = state.lastWorking();
  if (graph == nullptr) return stats;

  HairLook look = hairLookOf(*graph, lastContext(state.viewport).viewport);
  stats.hairColor = std::move(look.hairColor);
  stats.renderData = std::move(look.renderData);
  stats.colorNodes = std::move(look.colorNodes);
  for (ColorBlend& blend : look.colorBlends) stats.colorBlends.push_back(std::move(blend.node));
  for (const auto& [id, node] : graph->graph.nodes()) {
    const auto report = graph->graph.reports.find(id);
    if (report == graph->graph.reports.end()) continue;
    stats.times.emplace_back(node.name, report->second.milliseconds);
    stats.runs.emplace_back(node.name, report->second.run);
    if (!report->second.notes.empty()) stats.notes.emplace_back(node.name, report->second.notes);
  }
  return stats;
}

HairLook GroomSession::hairLook() const {
  const std::scoped_lock lock(state_->mutex);
  GraphDocument* graph = state_->lastWorking();
  return graph ? hairLookOf(*graph, lastContext(state_->viewport).viewport) : HairLook();
}

std::string GroomSession::hairLookJson() const {
  return hairLook().toJson().dump();
}

bool GroomSession::hasCardsNode() const {
  return activeNode("Cards").has_value();
}

std::optional<ActiveNode> GroomSession::activeNode(std::string_view type) const {
  const std::scoped_lock lock(state_->mutex);
  GraphDocument* graph = state_->lastWorking();
  if (graph == nullptr) return std::nullopt;
  std::optional<ActiveNode> found;
  forEachActiveUpstream(graph->graph, graph->output, lastContext(state_->viewport),
                        [&](const std::string& name, Operator& op) {
                          if (op.type() == type) {
                            found = ActiveNode{name, op.type(), op.parameters};
                          }
                          return !found;
                        });
  return found;
}

std::vector<std::string> GroomSession::colorBlendNodes() const {
  std::vector<std::string> names;
  for (ColorBlend& blend : hairLook().colorBlends) names.push_back(std::move(blend.node));
  return names;
}

bool GroomSession::readsTime() const {
  const std::scoped_lock lock(state_->mutex);
  GraphDocument* graph = state_->lastWorking();
  if (graph == nullptr) return false;
  const auto& correctives = state_->inputs.correctives();
  if (correctives && !correctives->layers.empty()) return true;
  return graphReadsTime(graph->graph, graph->output, lastContext(state_->viewport));
}

}  // namespace kestrane
