// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "core/data/strand_set.h"
#include "core/graph/graph_document.h"
#include "core/session/groom_session.h"
#include "core/session/session_scene.h"

namespace kestrane {

/// The strands of an evaluation, and what they were made from.
struct EvaluatedStrands {
  StrandSetPtr strands;
  ScalpMeshPtr surface;  // that the strands are rooted on, as it is posed
  Extent extent;
  ExtentPiecesPtr extentPieces;  // what the extent is made of
  std::uint64_t revision = 0;    // of the output node's cache; 0: not to be built on
  std::uint64_t pose = 0;        // of the surface that strands grown at rest were carried to
};

/// What one evaluation is made from. Nothing in it belongs to a session that may change meanwhile.
struct EvaluationInputs {
  EvaluateRequest request;
  SessionScenePtr scene;
  /// Where strands are grown at the rest pose: the scene there. Then they are carried to the scalp
  /// of `scene`.
  SessionScenePtr restScene;
  bool preview = false;
  bool incremental = true;
  /// The last result, which is built on where little or nothing has changed since; without
  /// strands: none.
  EvaluatedStrands previous;
};

/// What an evaluation made.
struct EvaluationResult : EvaluatedStrands {
  std::vector<std::string> warnings;  // of the nodes that take part, in node order
  bool restRan = false;               // nodes ran to grow strands at the rest pose
};

/// The context of an evaluation in a scene.
EvalContext contextOf(const EvaluationInputs& inputs, const SessionScene& scene);

/// Evaluates the document's output node. The graph is used by nobody else meanwhile. Throws
/// GraphError, also for strands that are not finite, naming the node that made them where the nodes
/// kept their results.
EvaluationResult runEvaluation(GraphDocument& document, const EvaluationInputs& inputs);

/// The scalp's refinements, 1 to 3, that Scalp nodes of the graph may hand out, ascending.
std::vector<int> scalpLevels(const Graph& graph, int renderLevels);

/// The nodes of one graph and those of another that have the same name and type, by ID.
std::vector<std::pair<std::uint32_t, std::uint32_t>> sameNodes(const Graph& graph,
                                                               const Graph& other);

/// Hands operator state, results and reports of one graph to the nodes of another that have the
/// same name and type. The first graph is left without results.
void adoptNodes(Graph& to, Graph& from);

}  // namespace kestrane
