// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/graph/graph.h"

namespace kestrane {

/// Evaluates one node's chain and returns its outputs. With graph.retainResults every node keeps
/// its result for the next time; without, results live only until their last reader has them.
/// Throws GraphError that names the node. One evaluation at a time per graph.
std::vector<GraphValue> evaluate(Graph& graph, std::uint32_t nodeId, const EvalContext& context);

/// A node's outputs, and the mesh that the strands among them are rooted on: the one that they were
/// grown on, or the scene's scalp. Null where there is none.
struct GrownValues {
  std::vector<GraphValue> outputs;
  ScalpMeshPtr surface;
};

/// The same as evaluate, with the surface.
GrownValues evaluateGrown(Graph& graph, std::uint32_t nodeId, const EvalContext& context);

/// The low-memory form on a graph that keeps results otherwise: node caches stay untouched.
GrownValues evaluateLean(Graph& graph, std::uint32_t nodeId, const EvalContext& context);

/// The key of a node's result for a context.
std::uint64_t nodeKey(Graph& graph, std::uint32_t nodeId, const EvalContext& context);

/// Whether the node is passed through for the context.
bool isBypassed(const Node& node, const EvalContext& context);

/// Calls the visitor for the node and, depth first, for each source on an active input, bypassed
/// nodes left out; nested graphs with the prefix "NAME/". False when a visitor stopped the walk.
bool forEachActiveUpstream(Graph& graph, std::uint32_t nodeId, const EvalContext& context,
                           const ActiveVisitor& visitor, const std::string& prefix = {});

/// Whether any active upstream node reads the time.
bool graphReadsTime(Graph& graph, std::uint32_t nodeId, const EvalContext& context);

/// Process-wide switches. Incremental: whether the incremental path is tried (on). DiffOutputs:
/// whether a full result is compared with the previous one to find what changed (on).
/// VerifyIncremental: whether every incremental result is compared with a full one (off); a
/// difference throws GraphError that names the node.
void setIncrementalEvaluation(bool on);
bool incrementalEvaluation();
void setDiffOutputs(bool on);
bool diffOutputs();
void setVerifyIncremental(bool on);
bool verifyIncremental();

}  // namespace kestrane
