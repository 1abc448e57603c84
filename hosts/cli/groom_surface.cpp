// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#include "hosts/cli/groom_surface.h"

#include "core/data/subdivision.h"

namespace kestrane {

ScalpMeshPtr refinedSurface(const ScalpMeshPtr& mesh, int levels) {
  if (!mesh || mesh->triangleCount() == 0 || levels < 1) return mesh;
  return makeSubdivisionPlan(*mesh, levels)->refineMesh(*mesh);
}

ScalpMeshPtr grownSurface(const GroomSession& session) {
  int levels = session.scalpRenderLevels();
  if (const auto node = session.activeNode("Scalp")) {
    const std::string word = node->parameters.text("subdivision");
    if (word == "off") levels = 0;
    if (word == "1" || word == "2" || word == "3") levels = word[0] - '0';
  }
  return refinedSurface(session.scalp(), levels);
}

}  // namespace kestrane
