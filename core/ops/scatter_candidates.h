// SPDX-FileCopyrightText: 2026 The Kestrane authors
// SPDX-License-Identifier: Apache-2.0

#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "core/data/scalp_mesh.h"

namespace kestrane {

/// A strand to be: its ID and the triangle that it roots on.
struct ScatterCandidate {
  std::uint64_t id = 0;
  std::uint32_t triangle = 0;
};
static_assert(sizeof(ScatterCandidate) == 16);

/// The candidates of a density (strands per unit area) on a mesh, in triangle order, thinned to a
/// share of them (1: all). The ID of a candidate that stays does not depend on the share.
std::vector<ScatterCandidate> scatterCandidates(const ScalpMesh& mesh, double density,
                                                std::uint64_t seed, float share);

/// The candidate's place, at random in its triangle.
StrandRoot scatterRoot(const ScatterCandidate& candidate);

/// The share of a thinned preview that is drawn, of `expected` strands with `points` points each:
/// `share`, held below the point budget (0: none) and above a floor that keeps small sets whole.
double previewShare(double share, double expected, std::size_t points, std::uint64_t budget,
                    bool previewAll);

/// One candidate per cell of a grid over the UVs whose (jittered) centre lies on the surface, in
/// row order. Where triangles overlap in UV space the lowest triangle has the cell.
struct GridCandidates {
  std::vector<std::uint64_t> ids;
  std::vector<StrandRoot> roots;
};
GridCandidates scatterUvGrid(const ScalpMesh& mesh, std::int64_t rows, std::int64_t columns,
                             float jitter, std::uint64_t seed, float share);

}  // namespace kestrane
