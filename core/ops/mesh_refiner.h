// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <string>

#include "core/data/subdivision.h"
#include "core/graph/graph_value.h"

namespace kestrane {

/// Refines a scene mesh for the operators that hand one out, keeping the plan while the cage's
/// topology stays and the refined mesh while its points do.
class MeshRefiner {
 public:
  /// The mesh at the level that a `subdivision` parameter asks for: matchRender (the level stored
  /// with the mesh), off, 1, 2 or 3. Throws GraphError for another word.
  ScalpMeshPtr refine(const SceneMesh& scene, const std::string& subdivision);

  /// What the last refine did, for a node's note; empty where it changed nothing.
  std::string note() const;

 private:
  ScalpMeshPtr cage_;
  ScalpMeshPtr fine_;
  SubdivisionPlanPtr plan_;
  int level_ = 0;
  bool matched_ = false;
  std::string from_;  // where the matched level comes from
};

}  // namespace kestrane
