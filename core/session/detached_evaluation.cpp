// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "core/session/detached_evaluation.h"

#include "core/base/parallel.h"

namespace kestrane {

DetachedEvaluation::DetachedEvaluation(GraphDocument graph, EvaluationInputs detachedInputs,
                                       const void* owner, std::uint64_t revision)
    : inputs(std::move(detachedInputs)),
      session(owner),
      graphRevision(revision),
      document(std::move(graph)),
      worker_([this] { run(); }) {}

DetachedEvaluation::~DetachedEvaluation() {
  wait();
}

void DetachedEvaluation::wait() {
  if (worker_.joinable()) worker_.join();
}

void DetachedEvaluation::run() {
  try {
    runWithThreads(inputs.request.threads, [this] { result = runEvaluation(document, inputs); });
  } catch (...) {
    failure = std::current_exception();
  }
  finished_ = true;
}

bool isFinished(const DetachedEvaluation& evaluation) {
  return evaluation.finished();
}

GraphDocument detachedCopy(const GraphDocument& document) {
  GraphDocument copy = copyGraph(document);
  for (auto& [id, node] : copy.graph.nodes()) node.cache = document.graph.node(id).cache;
  copy.graph.reports = document.graph.reports;
  return copy;
}

void installDetached(GraphDocument& document, GraphDocument& detached) {
  Graph& graph = document.graph;
  graph.resultCache.clear();
  for (const auto& [target, source] : sameNodes(graph, detached.graph)) {
    Node& node = detached.graph.node(source);
    graph.node(target).op->adoptState(*node.op);
    if (const auto report = detached.graph.reports.find(source);
        report != detached.graph.reports.end()) {
      graph.reports[target] = report->second;
    }
    // A node that holds the very result keeps it; others find it by its key when they are next run.
    const NodeCache& held = graph.node(target).cache;
    if (!node.cache.cached || (held.cached && held.revision == node.cache.revision)) continue;
    graph.resultCache[node.cache.cacheKey] = {std::move(node.cache)};
  }
  graph.nodesEvaluated += detached.graph.nodesEvaluated;
  graph.nodesIncremental += detached.graph.nodesIncremental;
}

}  // namespace kestrane
